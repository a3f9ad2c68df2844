#include "simulator/time/event_loop.h"

#include <algorithm>
#include <ctime>

namespace simulator {

int64_t monotonic_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

namespace {

int64_t next_wake_us(std::span<event_source *const> sources) {
    int64_t next = NEVER;
    for (const event_source *source : sources)
        next = std::min(next, source->wake_time_us());
    return next;
}

int wait_for_events(std::vector<pollfd> &polls, int64_t wake_us, int64_t longest_us) {
    const int64_t until_wake =
        wake_us == NEVER ? NEVER : std::max<int64_t>(0, wake_us - monotonic_us());
    const int64_t wait_us = std::min(until_wake, longest_us);
    if (wait_us == NEVER)
        return ppoll(polls.data(), polls.size(), nullptr, nullptr);
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(wait_us / 1'000'000);
    wait.tv_nsec = static_cast<long>(wait_us % 1'000'000 * 1000);
    return ppoll(polls.data(), polls.size(), &wait, nullptr);
}

} // namespace

int turn(std::span<event_source *const> sources, int64_t longest_us) {
    std::vector<pollfd> polls;
    std::vector<event_source *> owners;
    for (event_source *source : sources) {
        source->add_polls(polls);
        owners.resize(polls.size(), source);
    }
    // No signal can interrupt the wait: the board takes all of its signals from a descriptor.
    const int events = wait_for_events(polls, next_wake_us(sources), longest_us);

    for (size_t i = 0; events > 0 && i < polls.size(); i++)
        if (polls[i].revents != 0)
            owners[i]->ready(polls[i]);
    const int64_t now = monotonic_us();
    for (event_source *source : sources)
        if (source->wake_time_us() <= now)
            source->wake(now);
    return std::max(events, 0);
}

} // namespace simulator
