// The board's event loop. Everything that waits is an event source. It names the descriptors to
// watch and its wake-up time again on every turn, so no registration can go stale.
#pragma once

#include "simulator/time/clock.h"

#include <cstdint>
#include <poll.h>
#include <span>
#include <vector>

namespace simulator {

struct event_source {
    virtual ~event_source() = default;

    // Appends the descriptors to watch on this turn.
    virtual void add_polls(std::vector<pollfd> &polls) const {
        (void)polls;
    }
    // One of the watched descriptors has events; `event.revents` says which.
    virtual void ready(const pollfd &event) {
        (void)event;
    }
    // When to wake it, on the clock of `now_us`.
    virtual int64_t wake_time_us() const {
        return NEVER;
    }
    // The wake-up time has passed.
    virtual void wake(int64_t time_us) {
        (void)time_us;
    }
    // After the end of the program: true while something still waits to go to the operator.
    virtual bool has_unsent() const {
        return false;
    }
    // Called when the time for that is up: reports on standard error what is lost.
    virtual void report_unsent() {}
};

// The earliest wake-up time of them; NEVER if none has one.
int64_t next_wake_us(std::span<event_source *const> sources);

// Wakes each source whose time has come, in their order.
void wake_due(std::span<event_source *const> sources);

// Waits at most `longest_us` of the machine's time (NEVER: without limit) for events on the
// descriptors. Does not pass them on. True if there is one.
bool await_events(std::span<event_source *const> sources, int64_t longest_us);

// Waits at most `longest_us` of the machine's time (NEVER: without limit) for events on the
// descriptors and passes them on. Returns the number of descriptors that had events.
int take_events(std::span<event_source *const> sources, int64_t longest_us);

// Waits for the next event or wake-up time, at most `longest_us` (NEVER: without limit), and calls
// each source that has an event or is due. Returns the number of descriptors that had events.
int turn(std::span<event_source *const> sources, int64_t longest_us);

// After the end of the program: passes on what it did just before it ended. Does not wait.
void take_last_events(std::span<event_source *const> sources);

// The events of `wanted` (POLLIN, POLLOUT) that the descriptor has now. Does not wait.
short present_events(int fd, short wanted);

} // namespace simulator
