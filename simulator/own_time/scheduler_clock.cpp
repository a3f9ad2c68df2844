// How the board's own time passes: the delays of threads, and the jumps of the clock.
#include "simulator/own_time/scheduler.h"

#include <algorithm>
#include <csignal>
#include <ctime>

namespace simulator {

namespace {

constexpr long TICK_NS = 2'000'000;

volatile sig_atomic_t has_ticked = 0;

void take_tick(int) {
    has_ticked = 1;
}

} // namespace

// Interrupts the board's wait for a stopped call every few milliseconds, so that it looks at the
// thread that it waits for.
void scheduler::start_tick() {
    struct sigaction action {};
    action.sa_handler = take_tick;
    (void)sigaction(SIGRTMAX, &action, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGRTMAX;
    (void)timer_create(CLOCK_MONOTONIC, &event, &tick);
    itimerspec period{};
    period.it_interval.tv_nsec = period.it_value.tv_nsec = TICK_NS;
    (void)timer_settime(tick, 0, &period, nullptr);
}

// A ready thread goes on later.
void scheduler::delay(thread &of, int64_t until_us) {
    if (of.now == thread::state::held)
        return;
    of.asked_at_us = until_us; // the delay is no sleep
    of.now = thread::state::held;
    delayed.emplace(until_us, &of);
}

int64_t scheduler::wake_time_us() const {
    return delayed.empty() ? NEVER : delayed.begin()->first;
}

void scheduler::wake(int64_t time_us) {
    while (!delayed.empty() && delayed.begin()->first <= time_us) {
        thread &of = *delayed.begin()->second;
        delayed.erase(delayed.begin());
        of.now = thread::state::ready;
        queue.push_back(&of);
    }
}

void scheduler::advance() {
    const int64_t next_us = next_wake_us(sources);
    const bool is_due = next_us <= now_us();
    const int64_t wait_us = is_due ? 0 : pace_us(next_us);
    // Before time passes, the devices take what the program has done to their nodes.
    if (!is_due && take_all_events(wait_us)) {
        look_at_left();
        adopt_strangers();
        return;
    }
    if (!is_due && pace_us(next_us) > 0)
        return;
    if (!is_due)
        set_own_clock(next_us);
    wake_due(sources);
    look_at_left();
}

// The operator, visitors and threads in the kernel are looked at when there may be something.
bool scheduler::take_all_events(int64_t wait_us) {
    calls.look_at_nodes(false);
    const bool is_full = looks_everywhere || wait_us > 0 || !left.empty() || has_ticked != 0;
    if (!is_full)
        return take_events(watched, 0) > 0;
    has_ticked = 0;
    looks_everywhere = false;
    calls.look_at_nodes(true);
    return take_events(sources, wait_us) > 0;
}

// How long the machine's time has to go on until the board's may.
int64_t scheduler::pace_us(int64_t next_us) const {
    if (next_us == NEVER || speed <= 0)
        return next_us == NEVER ? NEVER : 0;
    const double due_us = static_cast<double>(next_us - BOOT_US) / speed;
    return std::max<int64_t>(0, machine_start_us + static_cast<int64_t>(due_us) - machine_us());
}

void scheduler::add_polls(std::vector<pollfd> &polls) const {
    for (const int listener : listeners)
        polls.push_back({listener, POLLIN, 0});
}

void scheduler::ready(const pollfd &event) {
    request asked{};
    if ((event.revents & POLLIN) != 0 && receive(event.fd, asked))
        arrive(asked, nullptr);
    else if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listeners.erase(event.fd);
}

} // namespace simulator
