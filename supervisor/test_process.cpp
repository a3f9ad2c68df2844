#include "supervisor/test_process.h"

#include <array>
#include <sys/mman.h>
#include <unistd.h>

#include "supervisor/sleep.h"
#include "supervisor/system_log.h"

namespace {

// By record; of the supervisor only.
std::array<pid_t, TABLE_RECORDS> started;

} // namespace

pid_t start_test() {
    const pid_t child = fork();
    if (child > 0)
        started[static_cast<size_t>(record_count)] = child;
    if (child != 0)
        return child;
    // Best effort: a limit on locked memory must not keep a test from running.
    (void)mlockall(MCL_CURRENT);
    open_system_log();
    return 0;
}

pid_t started_process(int32_t record_index) {
    return started[static_cast<size_t>(record_index)];
}

void forget_process(pid_t pid) {
    for (pid_t &process : started)
        if (process == pid)
            process = 0;
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
