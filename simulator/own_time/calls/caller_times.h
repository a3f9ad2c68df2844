// Times in the memory of a 64-bit caller.
#pragma once

#include "simulator/requests/request.h"
#include "simulator/time/clock.h"

#include <array>
#include <optional>

namespace simulator {

using two_words = std::array<int64_t, 2>; // a timespec or a timeval

constexpr int64_t LONGEST_S = 1'000'000'000; // a longer wait is as good as one without an end

// A timespec in microseconds, rounded up: nothing ends early. None if the caller has no such
// memory.
inline std::optional<int64_t> read_timespec(const request &asked, uint64_t address) {
    two_words words{};
    if (!read_memory(asked, address, words.data(), sizeof words))
        return std::nullopt;
    if (words[0] >= LONGEST_S)
        return LONGEST_S * US_PER_SECOND;
    return words[0] * US_PER_SECOND + (words[1] + NS_PER_US - 1) / NS_PER_US;
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
