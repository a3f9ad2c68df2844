#include "simulator/world/log/log_forward.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace simulator {

namespace {

constexpr size_t WAITING_MESSAGES = 4096; // some 80 full lists

} // namespace

bool log_forward::connect_to(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return complain("--forward %s: the path has %zu bytes: a socket's has at most %zu",
                        path.c_str(), path.size(), sizeof address.sun_path - 1);
    }
    memcpy(address.sun_path, path.data(), path.size());
    socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.is_open() ||
        connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return cannot("forward the log to", path);
    return true;
}

void log_forward::send(std::string_view message) {
    if (!socket.is_open())
        return;
    if (waiting.size() >= WAITING_MESSAGES) {
        lost++;
        return;
    }
    waiting.emplace_back(message);
    send_waiting();
}

void log_forward::send_waiting() {
    while (!waiting.empty()) {
        const std::string &message = waiting.front();
        if (::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
            if (errno == EAGAIN)
                return;
            lost++; // the receiver is gone
        }
        waiting.pop_front();
    }
}

bool log_forward::has_unsent() const {
    return !waiting.empty();
}

void log_forward::report_unsent() {
    const size_t in_all = lost + waiting.size();
    if (in_all > 0)
        report("%zu log messages could not be forwarded", in_all);
}

void log_forward::add_polls(std::vector<pollfd> &polls) const {
    if (!waiting.empty())
        polls.push_back({socket.get(), POLLOUT, 0});
}

void log_forward::ready(const pollfd &) {
    send_waiting();
}

} // namespace simulator
