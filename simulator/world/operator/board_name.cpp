#include "simulator/world/operator/board_name.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace simulator {

namespace {

constexpr int VISITORS_WAITING = 8;

struct socket_address {
    explicit socket_address(const std::string &name) {
        const std::string text = "hk_board/" + std::to_string(geteuid()) + "/" + name;
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path + 1, text.data(), text.size()); // the first byte stays 0: abstract
        length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    }
    const sockaddr *get() const {
        return reinterpret_cast<const sockaddr *>(&address);
    }

    sockaddr_un address{};
    socklen_t length;
};

} // namespace

bool is_board_name(std::string_view name) {
    return !name.empty() && name.size() <= NAME_LENGTH_MAX &&
           std::ranges::all_of(
               name,
               [](unsigned char letter) {
                   return isalnum(letter) != 0 || letter == '.' || letter == '-' || letter == '_';
               });
}

unique_fd claim_name(const std::string &name) {
    const socket_address own(name);
    unique_fd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (listener.is_open() && bind(listener.get(), own.get(), own.length) == 0 &&
        listen(listener.get(), VISITORS_WAITING) == 0)
        return listener;
    if (errno == EADDRINUSE)
        report("--name %s: a board of that name is running", name.c_str());
    else
        (void)cannot("claim the name", name);
    return unique_fd();
}

unique_fd connect_to_board(const std::string &name) {
    unique_fd connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (connection.is_open() && is_board_name(name)) {
        const socket_address board(name);
        if (connect(connection.get(), board.get(), board.length) == 0 &&
            is_same_user(connection.get()))
            return connection;
    }
    report("--enter %s: no board of that name is running", name.c_str());
    return unique_fd();
}

bool is_same_user(int connection) {
    ucred other{};
    socklen_t length = sizeof other;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &other, &length) == 0 &&
           other.uid == geteuid();
}

} // namespace simulator
