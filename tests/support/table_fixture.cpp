#include "tests/support/table_fixture.h"

#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/started_tests.h"

void TableTest::SetUp() {
    void *room = mmap(nullptr, sizeof(StatusTable), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(room, MAP_FAILED);
    set_status_table(static_cast<StatusTable *>(room));
    record_count = bogus_count = process_count = sync_owner = 0;
    for (int i = 1; i < TABLE_RECORDS; ++i)
        forget_process(started_process(i)); // of the previous case
}

void TableTest::TearDown() {
    for (int i = 1; i < TABLE_RECORDS; ++i)
        if (const pid_t pid = shared_word(record(i).pid); pid > 0 && kill(pid, SIGKILL) == 0)
            (void)waitpid(pid, nullptr, 0);
    (void)munmap(status_table, sizeof(StatusTable));
    set_status_table(nullptr);
}

void wait_a_moment() {
    sleep_us(1000);
}
