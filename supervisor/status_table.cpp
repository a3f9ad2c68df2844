#include "supervisor/status_table.h"

#include <sys/ipc.h>
#include <sys/shm.h>

StatusTable *status_table = nullptr;
int32_t bogus_count = 0;
int32_t process_count = 0;
int32_t sync_owner = 0;

StatusTable *status_table_attach(int32_t records) {
    const size_t size = static_cast<size_t>(records) * sizeof(TestRecord);
    const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | IPC_EXCL | 0660);
    if (id < 0)
        return nullptr;
    void *address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void *>(-1))
        return nullptr;
    return static_cast<StatusTable *>(address);
}

void set_status_table(StatusTable *table) {
    status_table = table;
    table_records = table != nullptr ? table->records.data() : nullptr;
}

void status_table_detach() {
    StatusTable *table = status_table;
    *const_cast<StatusTable *volatile *>(&status_table) = nullptr;
    if (table != nullptr)
        (void)shmdt(table);
}
