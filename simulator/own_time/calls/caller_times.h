// Times in the memory of a 64-bit caller.
#pragma once

#include "simulator/requests/request.h"
#include "simulator/time/clock.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace simulator {

using two_words = std::array<int64_t, 2>; // a timespec or a timeval

// A moment of the calendar is below it, and a longer wait is as good as one without an end: 3000
// years.
constexpr int64_t LONGEST_S = 100'000'000'000;

struct caller_time {
    int64_t us = 0;
    int error = 0; // EFAULT: the caller has no such memory; EINVAL: the kernel takes no such time
};

// A time of `units` (1000000 for a timeval, 1000000000 for a timespec: the parts of a second), in
// microseconds, rounded up: nothing ends early.
inline caller_time time_of(const two_words &words, int64_t units) {
    const auto [seconds, part] = words;
    if (seconds < 0 || part < 0 || part >= units)
        return {.error = EINVAL};
    const int64_t units_in_us = units / US_PER_SECOND;
    return {std::min(seconds, LONGEST_S) * US_PER_SECOND + (part + units_in_us - 1) / units_in_us};
}

inline caller_time read_timespec(const request &asked, uint64_t address) {
    two_words words{};
    if (!read_memory(asked, address, words.data(), sizeof words))
        return {.error = EFAULT};
    return time_of(words, NS_PER_US * US_PER_SECOND);
}

inline bool write_timespec(const request &asked, uint64_t address, int64_t time_us) {
    const two_words words = {time_us / US_PER_SECOND, time_us % US_PER_SECOND * NS_PER_US};
    return write_memory(asked, address, words.data(), sizeof words);
}

// The end of a wait that is given as a moment of the calendar or of the clock.
inline int64_t end_of_wait_us(int64_t moment_us, bool is_calendar) {
    return is_calendar ? moment_us - (calendar_us() - now_us()) : moment_us;
}

} // namespace simulator
