#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

// Reads the number at the start of `text`, 0 if there is none; see atol(3). Clamps it to 32 bits on
// every machine, as the board does.
inline int32_t number_of(const char *text) {
    return static_cast<int32_t>(std::clamp<long>(atol(text), INT32_MIN, INT32_MAX));
}
