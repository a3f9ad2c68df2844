// How the board's own time passes: the delays of threads, and the jumps of the clock.
#include "simulator/own_time/scheduler.h"

#include "simulator/own_time/tick.h"

#include <algorithm>
#include <csignal>
#include <ctime>

namespace simulator {

namespace {

constexpr long TICK_NS = 2'000'000;
constexpr int64_t LONGEST_WAIT_US = 20'000; // of the machine's time, between looks for signals
constexpr int64_t LONG_JUMP_US = 10'000;    // of the clock: before it comes a look for signals

volatile sig_atomic_t has_ticked = 0;

void take_tick(int) {
    has_ticked = 1;
}

} // namespace

void scheduler::start_tick() {
    const sigset_t signal = tick_signal();
    (void)sigprocmask(SIG_BLOCK, &signal, nullptr);
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
    if (next_us > now_us() && !pass_time(next_us))
        return;
    wake_due(sources);
    look_at_left();
}

// False if something has happened meanwhile, or if it is not time yet.
bool scheduler::pass_time(int64_t next_us) {
    const bool has_blocked_writer = std::ranges::any_of(left, &thread::is_writing_out);
    if (is_reader_late(has_blocked_writer)) {
        (void)take_events(sources, LONGEST_WAIT_US);
        look_at_left();
        adopt_strangers();
        return false;
    }
    // Before time passes, the devices take what the program has done to their nodes.
    if (has_taken_events(false))
        return false;
    const int64_t wait_us = std::min(pace_us(next_us), LONGEST_WAIT_US);
    if (wait_us > 0)
        await_events(wait_us, next_us);
    if (must_look_for_signals(next_us)) {
        note_signal();
        look_for_signals();
    }
    if ((wait_us > 0 && has_taken_events(true)) || !queue.empty() || pace_us(next_us) > 0)
        return false;
    set_own_clock(next_us);
    return true;
}

bool scheduler::has_taken_events(bool has_waited) {
    if (!take_all_events(has_waited))
        return false;
    look_at_left();
    adopt_strangers();
    return true;
}

// What comes from outside comes at the present.
void scheduler::await_events(int64_t wait_us, int64_t next_us) {
    (void)simulator::await_events(sources, wait_us);
    if (speed > 0)
        set_own_clock(std::clamp(present_us(), now_us(), next_us));
}

// The board does not see every signal that is sent: not the terminal's, and not a visitor's.
bool scheduler::must_look_for_signals(int64_t next_us) {
    const int64_t machine_now_us = machine_us();
    if (pace_us(next_us) > 0 ? machine_now_us < next_look_us : next_us - now_us() < LONG_JUMP_US)
        return false;
    next_look_us = machine_now_us + LONGEST_WAIT_US;
    return true;
}

// The operator, visitors and threads in the kernel are looked at when there may be something.
bool scheduler::take_all_events(bool has_waited) {
    calls.look_at_nodes(false);
    const bool is_full = looks_everywhere || has_waited || !left.empty() || has_ticked != 0;
    if (!is_full)
        return take_events(watched, 0) > 0;
    has_ticked = 0;
    looks_everywhere = false;
    calls.look_at_nodes(true);
    return take_events(sources, 0) > 0;
}

// How long the machine's time has to go on until the board's may.
int64_t scheduler::pace_us(int64_t next_us) const {
    if (next_us == NEVER || speed <= 0)
        return next_us == NEVER ? NEVER : 0;
    const double due_us = static_cast<double>(next_us - BOOT_US) / speed;
    return std::max<int64_t>(0, machine_start_us + static_cast<int64_t>(due_us) - machine_us());
}

// The board's time that belongs to the machine's.
int64_t scheduler::present_us() const {
    const auto passed_us = static_cast<double>(machine_us() - machine_start_us);
    return BOOT_US + static_cast<int64_t>(passed_us * speed);
}

void scheduler::add_polls(std::vector<pollfd> &polls) const {
    for (const int listener : listeners)
        polls.push_back({listener, POLLIN, 0});
}

void scheduler::ready(const pollfd &event) {
    request asked{};
    if ((event.revents & POLLIN) != 0 && receive_next(event.fd, asked))
        arrive(asked, nullptr);
    else if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listeners.erase(event.fd);
}

} // namespace simulator
