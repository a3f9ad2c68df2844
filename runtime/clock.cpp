#include "runtime/clock.h"

#include <cerrno>
#include <ctime>

void sleep_us(int32_t microseconds) {
    timespec left = {};
    left.tv_sec = microseconds / 1000000;
    left.tv_nsec = microseconds % 1000000 * 1000L;
    // EINTR: the interval timer or a request for a list; nanosleep has stored what is left.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
