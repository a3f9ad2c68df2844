// How a port and its pseudo-terminal share what is written and received, and when the port needs to
// wake for that.
#include "simulator/base/message.h"
#include "simulator/devices/serial/serial_port.h"

#include <algorithm>
#include <array>
#include <asm/ioctls.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <utility>

namespace simulator {

namespace {

constexpr size_t GIVEN_BYTES = 4096;
constexpr int64_t USERS_LOOK_US = 200'000; // in the machine's time, in which nothing reports exits

} // namespace

int64_t serial_port::wake_time_us() const {
    const bool is_busy = goes_away() || (is_terminal_served && seen_changes != model.changes());
    const bool looks_again = !sees_all_exits() && is_terminal_served && users && users->has_high;
    const int64_t look_us = looks_again ? users_seen_us + USERS_LOOK_US : NEVER;
    const bool may_go = hangup.can_come() && node.is_present();
    const int64_t hangup_us = may_go ? hangup.next_change(now_us()) : NEVER;
    return is_busy ? 0 : std::min({look_us, hangup_us, board_time_us(model.next_event_time())});
}

void serial_port::wake(int64_t) {
    joint->advance(line_now());
    if (goes_away()) {
        hangup.count_strikes(now_us());
        model.hang_up(line_now(), true);
        node.remove(); // the terminal hangs up too
    }
    if (is_terminal_served && node.is_present()) {
        look_at_node();
        give_to_node();
    }
    seen_changes = model.changes();
}

void serial_port::serve_terminal(int descriptor) {
    if (!std::exchange(is_low_copy_reported, true))
        report("port %s is copied to descriptor %d: its reads and writes there go through a "
               "terminal, whose queues hold more than those of the line, and which does not keep "
               "frames apart",
               name.c_str(), descriptor);
    is_terminal_served = has_low_copy = true;
    users = {.has_high = true, .has_low = true}; // the kernel is about to make the copy
    users_seen_us = now_us();
}

void serial_port::forget_users() {
    users.reset();
    seen_changes = model.changes() - 1; // what waits may go to the terminal now
}

// What the terminal has is left to its readers before the line takes over.
void serial_port::look_at_users() {
    const bool is_fresh = sees_all_exits() || now_us() < users_seen_us + USERS_LOOK_US;
    if (users && is_fresh)
        return;
    users = users_of(node, numbers);
    users_seen_us = now_us();
    if (!has_low_copy || users->has_low || !unsent.empty() || node.unread_bytes() > 0)
        return;
    is_terminal_served = has_low_copy = false;
}

void serial_port::apply_to_terminal(line::request_call &answered) {
    if (!is_terminal_served || !node.is_present())
        return;
    const uint32_t number = answered.number;
    const bool flushes = number == TCFLSH;
    if (number == TCSETSF || number == TCSETSF2 || (flushes && answered.value != TCOFLUSH))
        node.drop_unread();
    if (flushes && answered.value != TCIFLUSH) {
        unsent.clear();
        while (!take_written(node.line).empty()) {
        }
    }
    if (number == TIOCOUTQ)
        count_unsent(answered.argument);
}

// Adds what has not reached the queue of the line.
void serial_port::count_unsent(std::span<uint8_t> count) const {
    int32_t queued = 0;
    memcpy(&queued, count.data(), sizeof queued);
    queued += static_cast<int32_t>(node.untaken_bytes() + unsent.size());
    memcpy(count.data(), &queued, sizeof queued);
}

void serial_port::look_at_node() {
    if (!node.is_present())
        return;
    take_from_node();
    close_if_abandoned();
    if (is_terminal_served && has_low_copy)
        look_at_users();
}

// Takes as much as the line has room for. The rest waits in the terminal, and so does its writer.
void serial_port::take_from_node() {
    send_rest();
    while (unsent.empty()) {
        unsent = take_written(node.line);
        if (unsent.empty())
            return;
        if (descriptors == 0) { // a program from outside
            line::open_call call{.nonblocking = true};
            (void)model.open(line_now(), call);
            count_descriptor(O_RDWR);
        }
        is_terminal_served = true;
        send_rest();
    }
}

void serial_port::send_rest() {
    if (unsent.empty())
        return;
    line::write_call call{.bytes = unsent, .nonblocking = true};
    const int64_t sent = model.write(line_now(), call).result;
    if (sent > 0)
        unsent.erase(unsent.begin(), unsent.begin() + static_cast<ptrdiff_t>(sent));
    else if (sent != -EAGAIN)
        unsent.clear();
}

void serial_port::give_to_node() {
    std::array<uint8_t, GIVEN_BYTES> bytes;
    while (!model.is_closing() && !is_read()) {
        look_at_users();
        if (!is_terminal_served || users->has_high)
            return;
        line::read_call call{.bytes = bytes, .nonblocking = true};
        const int64_t count = model.read(line_now(), call).result;
        if (count <= 0)
            return;
        (void)give(node.line, std::span(bytes).first(static_cast<size_t>(count)));
    }
}

bool serial_port::is_read() {
    std::array<uint8_t, sizeof(int32_t)> memory{};
    line::request_call call{.number = FIONREAD, .argument = memory};
    (void)model.request(line_now(), call);
    return std::ranges::all_of(memory, [](uint8_t byte) { return byte == 0; });
}

} // namespace simulator
