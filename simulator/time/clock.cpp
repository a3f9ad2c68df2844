#include "simulator/time/clock.h"

#include <ctime>

namespace simulator {

namespace {

struct own_clock {
    bool is_started = false;
    int64_t time_us = BOOT_US;
    int64_t calendar_offset_us = 0;
};

own_clock own;

int64_t read_us(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now); // cannot fail: every kernel has both clocks
    return int64_t{now.tv_sec} * US_PER_SECOND + now.tv_nsec / NS_PER_US;
}

} // namespace

int64_t now_us() {
    return own.is_started ? own.time_us : machine_us();
}

int64_t calendar_us() {
    return own.is_started ? own.time_us + own.calendar_offset_us : read_us(CLOCK_REALTIME);
}

void start_own_clock(int64_t calendar_start_us) {
    own = {true, BOOT_US, calendar_start_us - BOOT_US};
}

bool has_own_clock() {
    return own.is_started;
}

void set_own_clock(int64_t time_us) {
    own.time_us = time_us;
}

int64_t machine_us() {
    return read_us(CLOCK_MONOTONIC);
}

} // namespace simulator
