#include "simulator/time/event_loop.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr int LAST_TURNS = 100;

int wait_for_events(std::vector<pollfd> &polls, int64_t longest_us) {
    if (longest_us == NEVER)
        return ppoll(polls.data(), polls.size(), nullptr, nullptr);
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(longest_us / US_PER_SECOND);
    wait.tv_nsec = static_cast<long>(longest_us % US_PER_SECOND * NS_PER_US);
    return ppoll(polls.data(), polls.size(), &wait, nullptr);
}

} // namespace

int64_t next_wake_us(std::span<event_source *const> sources) {
    int64_t next = NEVER;
    for (const event_source *source : sources)
        next = std::min(next, source->wake_time_us());
    return next;
}

void wake_due(std::span<event_source *const> sources) {
    const int64_t now = now_us();
    for (event_source *source : sources)
        if (source->wake_time_us() <= now)
            source->wake(now);
}

bool await_events(std::span<event_source *const> sources, int64_t longest_us) {
    std::vector<pollfd> polls;
    for (const event_source *source : sources)
        source->add_polls(polls);
    return wait_for_events(polls, longest_us) > 0;
}

int take_events(std::span<event_source *const> sources, int64_t longest_us) {
    std::vector<pollfd> polls;
    std::vector<event_source *> owners;
    for (event_source *source : sources) {
        source->add_polls(polls);
        owners.resize(polls.size(), source);
    }
    if (polls.empty() && longest_us == 0)
        return 0;
    // No operator's signal can interrupt the wait: the board takes those from a descriptor.
    const int events = wait_for_events(polls, longest_us);
    for (size_t i = 0; events > 0 && i < polls.size(); i++)
        if (polls[i].revents != 0)
            owners[i]->ready(polls[i]);
    return std::max(events, 0);
}

int turn(std::span<event_source *const> sources, int64_t longest_us) {
    const int64_t wake_us = next_wake_us(sources);
    const int64_t until_wake = wake_us == NEVER ? NEVER : std::max<int64_t>(0, wake_us - now_us());
    const int events = take_events(sources, std::min(until_wake, longest_us));
    wake_due(sources);
    return events;
}

void take_last_events(std::span<event_source *const> sources) {
    for (int turns = 0; turns < LAST_TURNS && turn(sources, 0) > 0; turns++) {
    }
}

short present_events(int fd, short wanted) {
    pollfd look{fd, wanted, 0};
    return poll(&look, 1, 0) == 1 ? look.revents : short{0};
}

} // namespace simulator
