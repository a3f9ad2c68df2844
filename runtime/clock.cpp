#include "runtime/clock.h"

#include <cerrno>
#include <ctime>

void sleep_us(int32_t microseconds) {
    timespec left = {};
    left.tv_sec = microseconds / US_PER_S;
    left.tv_nsec = microseconds % US_PER_S * 1000L;
    // EINTR: the interval timer or a request for a list; nanosleep has stored the time left.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

timeval time_of_day() {
    timeval now = {};
    (void)gettimeofday(&now, nullptr);
    return now;
}
