#include "supervisor/status_table.h"

#include <sys/ipc.h>
#include <sys/shm.h>

StatusTable *status_table = nullptr;
int32_t record_count = 0;
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

void status_table_detach() {
    StatusTable *table = status_table;
    *const_cast<StatusTable *volatile *>(&status_table) = nullptr;
    if (table != nullptr)
        (void)shmdt(table);
}

TestRecord &claim_record(char letter) {
    ++record_count;
    TestRecord &record = last_claimed_record();
    record.test_letter = letter;
    return record;
}

int32_t records_left() {
    return TEST_RECORDS - record_count;
}

TestRecord &last_claimed_record() {
    return status_table->records[static_cast<size_t>(record_count)];
}

void record_sample(TestRecord &record, int32_t position, int32_t value) {
    record.hist[static_cast<size_t>(record.hist_next)] = {position, value};
    if (++record.hist_next >= RING_SLOTS)
        record.hist_next = 0;
}

std::array<ErrorSample, RING_SLOTS> samples_newest_first(const TestRecord &record) {
    std::array<ErrorSample, RING_SLOTS> samples;
    // The crossover test may leave hist_next above the ring: the newest is then taken as slot 7.
    int32_t slot = record.hist_next - 1;
    if (slot > RING_SLOTS - 1 || slot < 0)
        slot = RING_SLOTS - 1;
    for (ErrorSample &sample : samples) {
        sample = record.hist[static_cast<size_t>(slot)];
        slot = slot == 0 ? RING_SLOTS - 1 : slot - 1;
    }
    return samples;
}
