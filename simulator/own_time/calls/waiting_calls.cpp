#include "simulator/own_time/calls/waiting_calls.h"

#include "simulator/own_time/calls/caller_times.h"
#include "simulator/own_time/calls/clock_calls.h"
#include "simulator/requests/caller.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <utility>

namespace simulator {

namespace {

// The wanted time and the address for the time left are the first arguments of nanosleep; in
// clock_nanosleep they follow the clock and the flags.
struct sleep_call final : stopped_call {
    sleep_call(const request &of, thread &sleeping) : stopped_call(of), caller(sleeping) {
        const bool has_clock = of.call == SYS_clock_nanosleep;
        const size_t first = has_clock ? 2 : 0;
        rest_at = of.arguments[first + 1];
        is_moment = has_clock && (of.arguments[1] & TIMER_ABSTIME) != 0;
        const auto wanted = read_timespec(of, of.arguments[first]);
        const auto id = has_clock ? static_cast<clockid_t>(of.arguments[0]) : CLOCK_MONOTONIC;
        const board_clock clock = find_clock(id);
        const bool can_sleep = has_timers(id) && id != CLOCK_THREAD_CPUTIME_ID;
        error = clock == board_clock::none ? EINVAL : can_sleep ? wanted.error : EOPNOTSUPP;
        if (error != 0)
            return;
        end_us = is_moment ? end_of_wait_us(wanted.us, clock == board_clock::calendar)
                           : now_us() + wanted.us;
        const int64_t continued_us = std::exchange(caller.continued_wait_us, NEVER);
        if (continued_us != NEVER && !is_moment)
            end_us = continued_us;
    }

    verdict attempt() override {
        if (error != 0)
            return verdict::done(-error);
        return now_us() >= end_us ? verdict::done(0) : verdict::blocked(end_us);
    }
    uint64_t changes() const override {
        return 0;
    }
    verdict interrupt() override {
        if (is_moment)
            return verdict::done(-RESTARTED_WITHOUT_HANDLER);
        if (rest_at != 0)
            (void)write_timespec(asked, rest_at, std::max<int64_t>(0, end_us - now_us()));
        if (has_handled_signal(asked))
            return verdict::done(-EINTR);
        caller.continued_wait_us = end_us; // it is being stopped
        return verdict::done(-RESTARTED_WITHOUT_HANDLER);
    }

private:
    thread &caller;
    uint64_t rest_at;
    bool is_moment;
    int error = 0;
    int64_t end_us = NEVER;
};

// When a signal has come, the call is left to the kernel, which then starts the handler.
struct wait_for_signal final : stopped_call {
    explicit wait_for_signal(const request &of) : stopped_call(of) {
        if (of.call != SYS_rt_sigsuspend && of.call != SYS_rt_sigtimedwait)
            return; // pause(2), which not every processor has
        uint64_t set = 0;
        error = read_memory(of, of.arguments[0], &set, sizeof set) ? 0 : EFAULT;
        if (of.call == SYS_rt_sigsuspend)
            mask = set;
        else
            awaited = set;
        if (of.call == SYS_rt_sigtimedwait && of.arguments[2] != 0) {
            const auto longest = read_timespec(of, of.arguments[2]);
            error = error != 0 ? error : longest.error;
            end_us = now_us() + longest.us;
        }
    }

    verdict attempt() override {
        if (error != 0)
            return verdict::done(-error);
        if (now_us() < end_us)
            return verdict::blocked(end_us);
        return is_interrupted(asked, mask, awaited) ? verdict::passed_on() : verdict::done(-EAGAIN);
    }
    uint64_t changes() const override {
        return 0;
    }
    verdict interrupt() override {
        return verdict::passed_on();
    }
    std::optional<uint64_t> blocked_signals() const override {
        return mask;
    }
    uint64_t awaited_signals() const override {
        return awaited;
    }

private:
    int error = 0;
    std::optional<uint64_t> mask; // of rt_sigsuspend
    uint64_t awaited = 0;         // by rt_sigtimedwait
    int64_t end_us = NEVER;
};

// The process that waitid(2) waits for, in the form that wait4(2) takes.
pid_t wanted_by_waitid(const request &asked) {
    const auto id = static_cast<pid_t>(asked.arguments[1]);
    switch (asked.arguments[0]) {
    case P_PID:
        return id;
    case P_PGID:
        return id == 0 ? 0 : -id;
    default:
        return -1;
    }
}

struct wait_for_child final : stopped_call {
    wait_for_child(const request &of, const thread &caller, process_table &table)
        : stopped_call(of),
          process(caller.owner->id),
          wanted(of.call == SYS_waitid ? wanted_by_waitid(of)
                                       : static_cast<pid_t>(of.arguments[0])),
          options(of.call == SYS_waitid ? static_cast<int>(of.arguments[3])
                                        : static_cast<int>(of.arguments[2]) | WEXITED),
          processes(table) {}

    verdict attempt() override {
        using children = process_table::children;
        const bool waits =
            processes.look_for_children(process, wanted, options) == children::unchanged;
        return waits && (options & WNOHANG) == 0 ? verdict::blocked(NEVER) : leave_to_kernel();
    }
    uint64_t changes() const override {
        return processes.changes;
    }
    verdict interrupt() override {
        return leave_to_kernel();
    }

private:
    verdict leave_to_kernel() {
        processes.note_report(process, wanted, options);
        return verdict::passed_on();
    }

    const pid_t process;
    const pid_t wanted;
    const int options;
    process_table &processes;
};

} // namespace

bool gives_mask(const request &asked) {
    switch (asked.call) {
    case SYS_ppoll:
        return asked.arguments[3] != 0;
    case SYS_epoll_pwait:
    case SYS_epoll_pwait2:
        return asked.arguments[4] != 0;
    case SYS_pselect6:
        return asked.arguments[5] != 0;
    default:
        return false;
    }
}

std::unique_ptr<stopped_call> make_sleep(const request &asked, thread &caller) {
    return std::make_unique<sleep_call>(asked, caller);
}

std::unique_ptr<stopped_call> make_wait_for_signal(const request &asked) {
    return std::make_unique<wait_for_signal>(asked);
}

std::unique_ptr<stopped_call> make_wait_for_child(const request &asked, const thread &caller,
                                                  process_table &processes) {
    return std::make_unique<wait_for_child>(asked, caller, processes);
}

} // namespace simulator
