// The interval timers of the program's processes: alarm(2), setitimer(2) and getitimer(2) with
// ITIMER_REAL. A process has one; execve(2) keeps it, fork(2) does not hand it on.
#pragma once

#include "simulator/own_time/calls/timer_state.h"
#include "simulator/own_time/processes.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <map>

namespace simulator {

struct interval_timers final : event_source {
    bool has_sent = false; // a signal, since the owner of the timers has looked

    // Answers the call, or passes it on if it is for another timer.
    void take(const request &asked, pid_t process);
    void forget(pid_t process);

    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    std::map<pid_t, timer_state> timers;
};

} // namespace simulator
