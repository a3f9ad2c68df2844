#include "supervisor/test_process.h"

#include <sys/mman.h>
#include <unistd.h>

#include "supervisor/sleep.h"
#include "supervisor/system_log.h"

pid_t start_test() {
    const pid_t child = fork();
    if (child != 0)
        return child;
    // Best effort: a limit on locked memory must not keep a test from running.
    (void)mlockall(MCL_CURRENT);
    open_system_log();
    return 0;
}

void hold_nap(TestRecord &record, int32_t nap_us) {
    set_shared_word(record.hold, HOLD_ACKNOWLEDGED);
    sleep_us(nap_us);
}

void mark_finished(TestRecord &record) {
    set_shared_word(record.pid, PID_FINISHED);
    sleep_us(5000);
}
