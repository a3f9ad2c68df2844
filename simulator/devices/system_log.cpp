#include "simulator/devices/system_log.h"

#include "simulator/base/message.h"
#include "simulator/world/log/board_output.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace simulator {

namespace {

constexpr const char *NODE = "/dev/log";
constexpr const char *LOG_PART = "log"; // its name in faults

constexpr int MESSAGES_A_TURN = 64;
constexpr size_t MESSAGE_BYTES = 8192; // the C library sends no longer messages

constexpr int RECEIVE_BYTES = 4 << 20; // room for a burst of lists, so senders do not wait
constexpr size_t STAMP_LENGTH = 16;    // "Nov 21 04:02:11 "

// Senders wait while this many messages are unread. Only a privileged board may raise the kernel's
// default of 10.
void allow_many_unread() {
    const unique_fd limit(open("/proc/sys/net/unix/max_dgram_qlen", O_WRONLY | O_CLOEXEC));
    if (limit.is_open())
        (void)!write(limit.get(), "512", 3);
}

bool is_stamp(std::string_view text) {
    return text.size() >= STAMP_LENGTH && isalpha(static_cast<unsigned char>(text[0])) != 0 &&
           text[3] == ' ' && text[6] == ' ' && text[9] == ':' && text[12] == ':' && text[15] == ' ';
}

std::string_view without_header(std::string_view message) {
    if (message.starts_with('<'))
        message.remove_prefix(std::min(message.find('>') + 1, message.size()));
    if (is_stamp(message))
        message.remove_prefix(STAMP_LENGTH);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\0'))
        message.remove_suffix(1);
    return message;
}

} // namespace

bool system_log::open_nodes() {
    allow_many_unread();
    if (!open_socket())
        return false;
    wake(now_us());
    return true;
}

bool system_log::open_socket() {
    socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, NODE);
    if (!socket.is_open() ||
        bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return cannot("open", NODE);
    const int bytes = RECEIVE_BYTES;
    if (setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    return true;
}

void system_log::add_polls(std::vector<pollfd> &polls) const {
    if (socket.is_open())
        polls.push_back({socket.get(), POLLIN, 0});
    forward.add_polls(polls);
}

void system_log::ready(const pollfd &event) {
    if (event.fd == socket.get())
        take_messages();
    else
        forward.ready(event);
}

bool system_log::has_unsent() const {
    return forward.has_unsent();
}

void system_log::report_unsent() {
    forward.report_unsent();
}

int64_t system_log::wake_time_us() const {
    return absence.next_look_us();
}

// Messages from before the log goes have arrived. Sending then fails until the log is back, and the
// C library connects again, see syslog(3).
void system_log::wake(int64_t time_us) {
    if (!absence.has_changed(time_us))
        return;
    if (!absence.is_present()) {
        (void)open_socket();
        return;
    }
    take_messages();
    socket.reset();
    (void)unlink(NODE);
}

void system_log::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "removable part")
        targets.insert(LOG_PART);
}

bool system_log::take_fault(const fault &wanted) {
    return absence.take(wanted, fault_id::gone, LOG_PART);
}

void system_log::take_messages() {
    std::array<char, MESSAGE_BYTES> message;
    // Takes a limited number: a program that logs without end must not keep the other devices
    // waiting.
    for (int count = 0; count < MESSAGES_A_TURN; ++count) {
        const ssize_t length = recv(socket.get(), message.data(), message.size(), 0);
        if (length < 0)
            return;
        const std::string_view text{message.data(), static_cast<size_t>(length)};
        forward.send(text);
        output.show(without_header(text));
    }
}

void add_system_log(device_set &devices) {
    devices.add<system_log>();
}

bool forward_log(device_set &devices, const char *path) {
    return devices.find<system_log>()->forward.connect_to(path); // every board has one
}

} // namespace simulator
