#pragma once

#include <cstdint>

// Sleeps the whole time given, in microseconds (0 or more), whatever signals arrive meanwhile; see
// nanosleep(2). All pacing in the tests goes through here.
void sleep_us(int32_t microseconds);
