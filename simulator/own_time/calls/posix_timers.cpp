#include "simulator/own_time/calls/posix_timers.h"

#include "simulator/own_time/calls/caller_times.h"
#include "simulator/own_time/calls/clock_calls.h"
#include "simulator/own_time/task_view.h"

#include <algorithm>
#include <array>
#include <climits>
#include <sys/syscall.h>
#include <unistd.h>

namespace simulator {

namespace {

using timer_spec = std::array<two_words, 2>; // struct itimerspec: interval, value

bool is_good(const sigevent &event) {
    const bool has_signal = event.sigev_signo > 0 && event.sigev_signo <= SIGRTMAX;
    const int how = event.sigev_notify & ~SIGEV_THREAD_ID;
    return event.sigev_notify == SIGEV_NONE ||
           ((how == SIGEV_SIGNAL || how == SIGEV_THREAD) && has_signal);
}

two_words timespec_of(int64_t time_us) {
    return {time_us / US_PER_SECOND, time_us % US_PER_SECOND * NS_PER_US};
}

} // namespace

void posix_timers::take(const request &asked, pid_t process) {
    if (asked.call == SYS_timer_create)
        return create(asked, process);
    const auto found = timers.find({process, static_cast<int>(asked.arguments[0])});
    if (found == timers.end())
        return refuse(asked, EINVAL);
    timer &of = found->second;
    switch (asked.call) {
    case SYS_timer_settime:
        return set(asked, of);
    case SYS_timer_gettime:
        return report(asked, asked.arguments[1], of) ? answer(asked, 0) : refuse(asked, EFAULT);
    case SYS_timer_getoverrun:
        return answer(asked, std::min<int64_t>(of.overruns, INT_MAX));
    default:
        timers.erase(found);
        return answer(asked, 0);
    }
}

// Without an event it sends SIGALRM.
void posix_timers::create(const request &asked, pid_t process) {
    const auto clock = static_cast<clockid_t>(asked.arguments[0]);
    const int number = next_numbers[process];
    sigevent event{};
    event.sigev_signo = SIGALRM;
    event.sigev_value.sival_int = number;
    const uint64_t event_at = asked.arguments[1];
    if (event_at != 0 && !read_memory(asked, event_at, &event, sizeof event))
        return refuse(asked, EFAULT);
    if (find_clock(clock) == board_clock::none || !is_good(event))
        return refuse(asked, EINVAL);
    if (!has_timers(clock))
        return refuse(asked, EOPNOTSUPP);
    if (!write_memory(asked, asked.arguments[2], &number, sizeof number))
        return refuse(asked, EFAULT);
    timer &made = timers[{process, number}] = {};
    made.is_of_calendar = find_clock(clock) == board_clock::calendar;
    made.event = event;
    next_numbers[process]++;
    answer(asked, 0);
}

void posix_timers::set(const request &asked, timer &of) {
    timer_spec wanted{};
    if (asked.arguments[2] == 0)
        return refuse(asked, EINVAL);
    if (!read_memory(asked, asked.arguments[2], wanted.data(), sizeof wanted))
        return refuse(asked, EFAULT);
    const caller_time period = time_of(wanted[0], NS_PER_US * US_PER_SECOND);
    const caller_time first = time_of(wanted[1], NS_PER_US * US_PER_SECOND);
    if (period.error != 0 || first.error != 0)
        return refuse(asked, EINVAL);
    if (!report(asked, asked.arguments[3], of))
        return refuse(asked, EFAULT);
    const bool is_moment = (asked.arguments[1] & TIMER_ABSTIME) != 0;
    of.due_us = is_moment ? end_of_wait_us(first.us, of.is_of_calendar) : now_us() + first.us;
    if (first.us == 0)
        of.due_us = NEVER;
    of.period_us = period.us;
    answer(asked, 0);
}

bool posix_timers::report(const request &asked, uint64_t address, const timer &of) {
    const timer_spec words = {timespec_of(of.period_us), timespec_of(of.left_us())};
    return address == 0 || write_memory(asked, address, words.data(), sizeof words);
}

void posix_timers::forget(pid_t process) {
    std::erase_if(timers, [&](const auto &each) { return each.first.first == process; });
    next_numbers.erase(process);
}

int64_t posix_timers::wake_time_us() const {
    return first_due_us(timers);
}

void posix_timers::wake(int64_t time_us) {
    for (auto &[key, each] : timers) {
        if (each.due_us > time_us)
            continue;
        // A moment in the past may be many periods ago.
        const int64_t missed = each.period_us == 0 ? 0 : (time_us - each.due_us) / each.period_us;
        each.due_us = each.period_us == 0 ? NEVER : each.due_us + each.period_us * (missed + 1);
        if (each.event.sigev_notify == SIGEV_NONE)
            continue;
        send(key, each);
        each.overruns += missed;
        has_sent = true;
    }
}

// A timer has one signal at a time: while that is waiting, further ends are only counted.
void posix_timers::send(const timer_key &key, timer &of) {
    const auto [process, number] = key;
    const bool has_thread = (of.event.sigev_notify & SIGEV_THREAD_ID) != 0;
    const pid_t receiver = has_thread ? of.event._sigev_un._tid : process;
    const int signal = of.event.sigev_signo;
    if (is_signal_waiting(receiver, signal)) {
        of.overruns++;
        return;
    }
    of.overruns = 0;
    siginfo_t about{};
    about.si_signo = signal;
    about.si_code = SI_TIMER;
    about.si_timerid = number;
    about.si_value = of.event.sigev_value;
    if (has_thread) // it may have ended
        (void)syscall(SYS_rt_tgsigqueueinfo, process, receiver, signal, &about);
    else
        (void)syscall(SYS_rt_sigqueueinfo, process, signal, &about);
}

} // namespace simulator
