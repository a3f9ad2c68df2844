// The timers of timer_create(2). A process has as many as it makes; neither fork(2) nor execve(2)
// hands them on. The board sends their signals, at its own time.
#pragma once

#include "simulator/own_time/calls/timer_state.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <csignal>
#include <map>
#include <utility>

namespace simulator {

struct posix_timers final : event_source {
    bool has_sent = false; // a signal, since the owner of the timers has looked

    // Answers timer_create, timer_settime, timer_gettime, timer_getoverrun or timer_delete.
    void take(const request &asked, pid_t process);
    // Of a process that has ended or started another program.
    void forget(pid_t process);

    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    struct timer : timer_state {
        bool is_of_calendar = false;
        sigevent event{};
        int64_t overruns = 0; // since its last signal
    };
    using timer_key = std::pair<pid_t, int>; // of a process, its number

    void create(const request &asked, pid_t process);
    static void set(const request &asked, timer &of);
    static bool report(const request &asked, uint64_t address, const timer &of);
    static void send(const timer_key &key, timer &of);

    std::map<timer_key, timer> timers;
    std::map<pid_t, int> next_numbers;
};

} // namespace simulator
