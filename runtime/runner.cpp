#include "runtime/runner.h"

#include <cerrno>
#include <sys/mman.h>

#include "runtime/clock.h"
#include "runtime/started_tests.h"
#include "runtime/system_log.h"

namespace {

constexpr int32_t END_NAP_US = 5000;

} // namespace

pid_t fork_test() {
    const pid_t child = fork();
    if (child < 0)
        note_failed_start(errno);
    if (child > 0)
        note_started(child);
    if (child != 0)
        return child;
    // Best effort: a test also runs under a limit on locked memory.
    (void)mlockall(MCL_CURRENT);
    open_system_log();
    return 0;
}

void runner_detail::hold_nap(TestRecord &record, int32_t nap_us) {
    // Answers only a request, once a hold: it must not overwrite a release.
    const int32_t hold = shared_word(record.hold);
    if (hold != HOLD_NONE && hold != HOLD_ACKNOWLEDGED)
        set_shared_word(record.hold, HOLD_ACKNOWLEDGED);
    sleep_us(nap_us);
}

void runner_detail::end_nap() {
    sleep_us(END_NAP_US);
}
