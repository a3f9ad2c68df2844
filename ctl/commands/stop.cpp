// hk_ctl stop, hk_ctl log: send signals to the supervisor.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "ctl/commands/commands.h"
#include "ctl/commands/ending.h"
#include "ctl/commands/leftovers.h"
#include "ctl/selection.h"
#include "ctl/text.h"
#include "runtime/clock.h"

namespace {

constexpr int32_t LOOK_US = 20000;

// Waits until the supervisor handles the signal, for an earlier one would end only the supervisor;
// until `latest` on the clock of now_ms at most.
bool signal_supervisor(const stress_run &run, int number, int64_t latest) {
    while (!handles_signal(run.supervisor, number)) {
        if (!is_running(run.supervisor) || now_ms() >= latest) {
            complain("supervisor %d takes no signals", static_cast<int>(run.supervisor_id()));
            return false;
        }
        sleep_us(LOOK_US);
    }
    if (send_signal(run.supervisor, number))
        return true;
    complain("cannot signal supervisor %d: %s", static_cast<int>(run.supervisor_id()),
             strerror(errno));
    return false;
}

bool is_own_to_signal(const stress_run &run) {
    if (run.supervisor_is != supervisor_state::UNSEEN)
        return true;
    complain("run @%d: its processes are another user's", static_cast<int>(run.supervisor_id()));
    return false;
}

bool end_run(stress_run &run, int64_t timeout_ms) {
    if (!run.has_lost_supervisor()) {
        const int64_t latest = now_ms() + timeout_ms;
        (void)signal_supervisor(run, SIGTERM, latest); // what remains is ended below
        if (await_end(run, latest - now_ms()))
            return true;
        printf("run @%d has not ended within %.1f s\n", static_cast<int>(run.supervisor_id()),
               static_cast<double>(timeout_ms) / 1000);
    }
    return end_what_is_left(run);
}

} // namespace

int ask_for_list(const command_options &options, command_words words) {
    int status = DONE;
    const auto run = choose_run(words, true, status);
    if (!run)
        return status;
    if (!is_own_to_signal(*run))
        return SOMETHING_WRONG;
    if (run->has_lost_supervisor()) {
        complain("run @%d is %s", static_cast<int>(run->supervisor_id()), name_of_state(*run));
        return NOTHING_THERE;
    }
    return signal_supervisor(*run, SIGUSR1, now_ms() + options.timeout_ms) ? DONE : SOMETHING_WRONG;
}

int stop_run(const command_options &options, command_words words) {
    int status = DONE;
    auto run = choose_run(words, true, status);
    if (!run)
        return status;
    if (!is_own_to_signal(*run))
        return SOMETHING_WRONG;
    if (run->is_over() && !options.clean) {
        complain("run @%d is over", static_cast<int>(run->supervisor_id()));
        return NOTHING_THERE;
    }
    const leftovers left = leftovers_of(*run, find_runs().runs); // while its tests still run
    if (!end_run(*run, options.timeout_ms)) {
        complain("run @%d: not all of it has ended", static_cast<int>(run->supervisor_id()));
        return SOMETHING_WRONG;
    }
    printf("run @%d has ended\n", static_cast<int>(run->supervisor_id()));
    if (!options.clean)
        return DONE;
    const bool removed = remove_leftovers(left, false);
    return remove_table(*run, false) && removed ? DONE : SOMETHING_WRONG;
}
