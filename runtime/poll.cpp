#include "runtime/poll.h"

#include <cerrno>
#include <poll.h>

namespace {

bool event_within(int fd, short events, int32_t timeout_ms) {
    pollfd waiting = {fd, events, 0};
    int ready;
    // EINTR: a test handles no signal, but a debugger may interrupt it. The wait starts again.
    do
        ready = poll(&waiting, 1, timeout_ms);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

bool input_within(int fd, int32_t timeout_ms) {
    return event_within(fd, POLLIN | POLLPRI, timeout_ms);
}

bool has_hung_up(int fd) {
    pollfd port = {fd, 0, 0}; // what is not asked for is reported all the same
    return poll(&port, 1, 0) > 0 && (port.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

bool output_within(int fd, int32_t timeout_ms) {
    return event_within(fd, POLLOUT, timeout_ms);
}
