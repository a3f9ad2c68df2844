// The board's one event loop. Everything that waits for something is an event source: it names the
// descriptors it wants watched and the time at which it wants to be woken, anew on every turn, so
// that no list of registrations can go stale.
#pragma once

#include "simulator/time/clock.h"

#include <cstdint>
#include <poll.h>
#include <span>
#include <vector>

namespace simulator {

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
    // When to be woken, in the time of `now_us`.
    virtual int64_t wake_time_us() const {
        return NEVER;
    }
    // The wake-up time has passed.
    virtual void wake(int64_t time_us) {
        (void)time_us;
    }
    // After the end of the program: whether something still waits to be passed on to the operator.
    virtual bool has_unsent() const {
        return false;
    }
    // No time is left: reports what is lost of it, on standard error.
    virtual void report_unsent() {}
};

// The earliest wake-up time of them; NEVER if none has one.
int64_t next_wake_us(std::span<event_source *const> sources);

// Wakes each source whose time has come, in their order.
void wake_due(std::span<event_source *const> sources);

// Waits at most `longest_us` of the machine's time (NEVER: without limit) for events on the
// descriptors and passes them on. Returns the number of descriptors that had events.
int take_events(std::span<event_source *const> sources, int64_t longest_us);

// Waits for the next event or wake-up time, at most `longest_us` (NEVER: without limit), and passes
// everything that is due to its source. Returns the number of descriptors that had events.
int turn(std::span<event_source *const> sources, int64_t longest_us);

// The events of `wanted` (POLLIN, POLLOUT) that the descriptor has at this moment; waits for none.
short present_events(int fd, short wanted);

} // namespace simulator
