// The board's one event loop. Everything that waits for something is an event source: it names the
// descriptors it wants watched and the time at which it wants to be woken, anew on every turn, so
// that no list of registrations can go stale.
#pragma once

#include <cstdint>
#include <poll.h>
#include <span>
#include <vector>

namespace simulator {

constexpr int64_t NEVER = INT64_MAX; // a wake-up time that does not come

// CLOCK_MONOTONIC in microseconds.
int64_t monotonic_us();

struct event_source {
    virtual ~event_source() = default;

    // Appends what is to be watched on this turn.
    virtual void add_polls(std::vector<pollfd> &polls) const {
        (void)polls;
    }
    // One of the watched descriptors has events; `event.revents` says which.
    virtual void ready(const pollfd &event) {
        (void)event;
    }
    // When to be woken, in CLOCK_MONOTONIC microseconds.
    virtual int64_t wake_time_us() const {
        return NEVER;
    }
    // The wake-up time has passed.
    virtual void wake(int64_t now_us) {
        (void)now_us;
    }
};

// Waits for the next event or wake-up time, at most `longest_us` (NEVER: without limit), and passes
// everything that is due to its source. Returns the number of descriptors that had events.
int turn(std::span<event_source *const> sources, int64_t longest_us);

} // namespace simulator
