// A timer of the program, as setitimer(2) and timer_create(2) have them.
#pragma once

#include "simulator/time/clock.h"

#include <algorithm>
#include <cstdint>

namespace simulator {

struct timer_state {
    int64_t due_us = NEVER;
    int64_t period_us = 0; // 0: it goes off once

    // Until it goes off, at least 1; 0 if it does not run.
    int64_t left_us() const {
        return due_us == NEVER ? 0 : std::max<int64_t>(1, due_us - now_us());
    }
};

// When the first of them goes off; `timers` is a map.
int64_t first_due_us(const auto &timers) {
    int64_t first = NEVER;
    for (const auto &[key, each] : timers)
        first = std::min(first, each.due_us);
    return first;
}

} // namespace simulator
