#include "simulator/devices/spi/node_use.h"

#include "simulator/base/message.h"

#include <array>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/inotify.h>
#include <utility>

namespace simulator {

namespace {

constexpr size_t USE_EVENT_BYTES = 4096;
// The kernel reports a close shortly before it is complete: longer than any takes.
constexpr int64_t LOOK_AGAIN_US = 1000;
constexpr int LOOKS = 5;

// A file's own events have no name, so each has the size of the structure.
uint32_t all_events(int happenings) {
    std::array<char, USE_EVENT_BYTES> events;
    uint32_t mask = 0;
    for (ssize_t bytes = 0; (bytes = read(happenings, events.data(), events.size())) > 0;)
        for (size_t at = 0; at < static_cast<size_t>(bytes); at += sizeof(inotify_event)) {
            inotify_event event{};
            memcpy(&event, &events[at], sizeof event);
            mask |= event.mask;
        }
    return mask;
}

} // namespace

bool node_use::create(const std::string &wanted_path) {
    path = wanted_path;
    file.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!file.is_open())
        return cannot("create", path);
    happenings.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    return inotify_add_watch(happenings.get(), path.c_str(), IN_CLOSE | IN_ACCESS | IN_MODIFY) >=
               0 ||
           cannot("watch", path);
}

void node_use::take_events() {
    const uint32_t happened = all_events(happenings.get());
    if ((happened & (IN_ACCESS | IN_MODIFY)) != 0 && !std::exchange(is_data_reported, true))
        report(
            "a program reads or writes %s: these calls reach the node's file and not the device, "
            "which takes requests (ioctl) alone",
            path.c_str());
    if ((happened & IN_CLOSE) == 0)
        return;
    // In the board's own time the close is complete when the board looks.
    looks_left = has_own_clock() ? 1 : LOOKS;
    look_due_us = now_us();
}

bool node_use::has_ended() {
    if (look_due_us == NEVER)
        return false;
    const bool has_left = is_unused();
    looks_left--;
    look_due_us = has_left || looks_left == 0 ? NEVER : now_us() + LOOK_AGAIN_US;
    return has_left;
}

// An open at this moment waits until the lease is given back. Its signal is one that does nothing.
bool node_use::is_unused() const {
    return fcntl(file.get(), F_SETSIG, SIGURG) == 0 &&
           fcntl(file.get(), F_SETLEASE, F_WRLCK) == 0 &&
           fcntl(file.get(), F_SETLEASE, F_UNLCK) == 0;
}

} // namespace simulator
