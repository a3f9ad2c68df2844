#include "runtime/started_tests.h"

#include <array>
#include <cstring>
#include <unistd.h>

#include "runtime/print.h"
#include "runtime/record.h"

namespace {

struct test_process {
    pid_t pid;
    bool reaped;
};

std::array<test_process, TABLE_RECORDS> started; // by record; only the supervisor uses it
int32_t not_started = 0;

const test_process *find_process(pid_t pid) {
    for (const test_process &process : started)
        if (pid > 0 && process.pid == pid)
            return &process;
    return nullptr;
}

} // namespace

void note_started(pid_t pid) {
    started[static_cast<size_t>(record_count)] = {pid, false};
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

void note_failed_start(int reason) {
    TestRecord &record = last_claimed_record();
    ++record.errors;
    set_shared_word(record.pid, PID_REAPED);
    ++not_started;
    print(STDERR_FILENO, "hk_stress: cannot fork the test of record %d: %s\n", record_count,
          strerror(reason));
}

int32_t failed_starts() {
    return not_started;
}
