#include "simulator/time/clock.h"

#include <ctime>

namespace simulator {

namespace {

int64_t read_us(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now); // cannot fail: every kernel has both clocks
    return int64_t{now.tv_sec} * US_PER_SECOND + now.tv_nsec / NS_PER_US;
}

} // namespace

int64_t now_us() {
    return read_us(CLOCK_MONOTONIC);
}

int64_t calendar_us() {
    return read_us(CLOCK_REALTIME);
}

} // namespace simulator
