#include "simulator/own_time/calls/interval_timers.h"

#include "simulator/own_time/calls/caller_times.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <sys/syscall.h>
#include <sys/time.h>
#include <utility>

namespace simulator {

namespace {

using timer_words = std::array<int64_t, 4>; // struct itimerval: interval, value

caller_time time_in(const timer_words &words, size_t at) {
    return time_of({words[at], words[at + 1]}, US_PER_SECOND);
}

bool write_state(const request &asked, uint64_t address, const timer_state &of) {
    const int64_t left = of.left_us();
    const timer_words words = {of.period_us / US_PER_SECOND, of.period_us % US_PER_SECOND,
                               left / US_PER_SECOND, left % US_PER_SECOND};
    return address == 0 || write_memory(asked, address, words.data(), sizeof words);
}

// Returns the seconds that were left, rounded, and at least 1.
void answer_alarm(const request &asked, timer_state &of) {
    const int64_t left = of.left_us();
    const auto seconds = static_cast<uint32_t>(asked.arguments[0]);
    of = {seconds == 0 ? NEVER : now_us() + seconds * US_PER_SECOND, 0};
    const int64_t rounded = (left + US_PER_SECOND / 2) / US_PER_SECOND;
    answer(asked, left == 0 ? 0 : std::max<int64_t>(1, rounded));
}

void answer_setitimer(const request &asked, timer_state &of) {
    timer_words wanted{};
    if (asked.arguments[1] != 0 &&
        !read_memory(asked, asked.arguments[1], wanted.data(), sizeof wanted)) {
        refuse(asked, EFAULT);
        return;
    }
    const auto [period, first] = std::pair{time_in(wanted, 0), time_in(wanted, 2)};
    if (period.error != 0 || first.error != 0)
        return refuse(asked, EINVAL);
    const timer_state before = of;
    of = {first.us == 0 ? NEVER : now_us() + first.us, period.us};
    if (write_state(asked, asked.arguments[2], before))
        answer(asked, 0);
    else
        refuse(asked, EFAULT);
}

} // namespace

void interval_timers::take(const request &asked, pid_t process) {
    // Not every processor has alarm(2).
    const bool is_alarm = asked.call != SYS_setitimer && asked.call != SYS_getitimer;
    if (!is_alarm && asked.arguments[0] != ITIMER_REAL) {
        pass_on(asked);
        return;
    }
    timer_state &wanted = timers[process];
    if (is_alarm)
        answer_alarm(asked, wanted);
    else if (asked.call == SYS_setitimer)
        answer_setitimer(asked, wanted);
    else if (write_state(asked, asked.arguments[1], wanted))
        answer(asked, 0);
    else
        refuse(asked, EFAULT);
}

void interval_timers::forget(pid_t process) {
    timers.erase(process);
}

int64_t interval_timers::wake_time_us() const {
    return first_due_us(timers);
}

void interval_timers::wake(int64_t time_us) {
    for (auto &[id, each] : timers) {
        if (each.due_us > time_us)
            continue;
        (void)kill(id, SIGALRM); // it may have ended
        each.due_us = each.period_us == 0 ? NEVER : each.due_us + each.period_us;
        has_sent = true;
    }
}

} // namespace simulator
