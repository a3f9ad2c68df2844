#include "runtime/runner.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/system_log.h"

namespace {

// By record; of the supervisor only.
struct test_process {
    pid_t pid;
    bool reaped;
};
std::array<test_process, TABLE_RECORDS> started;

const test_process *find_process(pid_t pid) {
    for (const test_process &process : started)
        if (pid > 0 && process.pid == pid)
            return &process;
    return nullptr;
}
int32_t not_started = 0;

void count_failed_start(int reason) {
    TestRecord &record = last_claimed_record();
    ++record.errors;
    set_shared_word(record.pid, PID_REAPED);
    ++not_started;
    char line[128];
    const int length = snprintf(line, sizeof line, "hk_stress: no process for record %d: %s\n",
                                record_count, strerror(reason));
    (void)!write(STDERR_FILENO, line, static_cast<size_t>(length));
}

} // namespace

pid_t start_test() {
    const pid_t child = fork();
    if (child < 0)
        count_failed_start(errno);
    if (child > 0)
        started[static_cast<size_t>(record_count)] = {child, false};
    if (child != 0)
        return child;
    // Best effort: a limit on locked memory must not keep a test from running.
    (void)mlockall(MCL_CURRENT);
    open_system_log();
    return 0;
}

int32_t failed_starts() {
    return not_started;
}

pid_t started_process(int32_t record_index) {
    const test_process &process = started[static_cast<size_t>(record_index)];
    return process.reaped ? 0 : process.pid;
}

int32_t record_of_process(pid_t pid) {
    const test_process *process = find_process(pid);
    return process != nullptr ? static_cast<int32_t>(process - started.data()) : 0;
}

bool was_reaped(pid_t pid) {
    const test_process *process = find_process(pid);
    return process != nullptr && process->reaped;
}

void forget_process(pid_t pid) {
    for (test_process &process : started)
        if (process.pid == pid)
            process.reaped = true;
}

void hold_nap(TestRecord &record, int32_t nap_us) {
    // Written once a hold, for a request alone: a release must not be overwritten.
    const int32_t hold = shared_word(record.hold);
    if (hold != HOLD_NONE && hold != HOLD_ACKNOWLEDGED)
        set_shared_word(record.hold, HOLD_ACKNOWLEDGED);
    sleep_us(nap_us);
}

void mark_finished(TestRecord &record) {
    set_shared_word(record.pid, PID_FINISHED);
    sleep_us(5000);
}
