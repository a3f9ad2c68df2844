#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

// The number that a text begins with, 0 where it begins with none; see atol(3). Cut to the range of
// 32 bits on every machine, as the board does it.
inline int32_t number_of(const char *text) {
    return static_cast<int32_t>(std::clamp<long>(atol(text), INT32_MIN, INT32_MAX));
}
