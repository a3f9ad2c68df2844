// The deadline is tight, so the exchange yields the processor right after the transmission and
// polls in slices of 6 ms. Only the marker identifies a reply; a reply after stray bytes is
// realigned.

#include "fio/fio_exchange.h"

#include <algorithm>
#include <sched.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/system_log.h"

namespace {

constexpr int32_t WRITABLE_MS = 5;
constexpr int32_t REPLY_POLL_MS = 6;
constexpr int64_t FIRST_FIGURE_US = 6000; // any value above 0 starts the wait
constexpr int64_t DEADLINE_US = 24000;
constexpr size_t CLEARED_BYTES = 20; // of the receive area, before each read

// The receive area of this process. Bytes of earlier replies remain after the cleared bytes.
receive_area area;

int64_t microseconds_between(const timeval &from, const timeval &to) {
    return (int64_t{to.tv_sec} - from.tv_sec) * US_PER_S + (to.tv_usec - from.tv_usec);
}

bool send_request(int port, std::span<const uint8_t> request) {
    (void)output_within(port, WRITABLE_MS); // if the port is not ready, the write fails
    (void)tcdrain(port);
    return write(port, request.data(), request.size()) == static_cast<ssize_t>(request.size());
}

// Reads the waiting bytes; `ready` is the result of the poll. Returns their number, 0 for none.
size_t read_waiting(int port, bool ready) {
    int waiting = 0;
    (void)ioctl(port, FIONREAD, &waiting);
    if (!ready && waiting <= 0)
        return 0;
    const ssize_t count = read(port, area.received().data(), receive_area::READ_BYTES);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

// Returns false if the received bytes are no reply.
bool take_reply(size_t count, uint8_t marker, std::span<uint8_t> reply, TestRecord &record) {
    const auto received = static_cast<int>(count);
    const auto expected = static_cast<int>(reply.size());
    const std::optional<int32_t> offset = find_frame(area.received().first(count), marker);
    if (offset != 0) {
        log_and_print("<%d %d ", received, expected);
        if (!offset)
            return false;
        ++record.errors;
        log_and_print(" %d>", *offset);
    } else if (received != expected) {
        log_and_print("[%d %d]", received, expected);
    }
    copy_frame(area, *offset, reply);
    return true;
}

bool await_reply(int port, uint8_t marker, std::span<uint8_t> reply, TestRecord &record) {
    timeval start = time_of_day();
    (void)sched_yield();
    for (int64_t figure_us = FIRST_FIGURE_US; figure_us >= 1;) {
        const timeval before = time_of_day();
        const bool ready = input_within(port, REPLY_POLL_MS);
        std::ranges::fill(area.received().first<CLEARED_BYTES>(), uint8_t{0});
        figure_us = wait_figure_us(start, before, time_of_day());
        const size_t count = read_waiting(port, ready);
        if (count > 0 && take_reply(count, marker, reply, record))
            return true;
    }
    return false;
}

} // namespace

int fio_exchange(std::span<const uint8_t> request, std::span<uint8_t> reply, uint16_t expected,
                 int port, TestRecord &record) {
    if (!send_request(port, request))
        return 1;
    (void)tcdrain(port);
    const uint8_t marker = reply_marker(request[COMMAND_AT]);
    return await_reply(port, marker, reply.first(expected), record) ? 0 : 1;
}

std::optional<int32_t> find_frame(std::span<const uint8_t> received, uint8_t marker) {
    if (received.size() > COMMAND_AT && received[COMMAND_AT] == marker)
        return 0;
    const auto found = std::ranges::find(received, marker);
    if (found == received.end())
        return std::nullopt;
    return static_cast<int32_t>(found - received.begin()) - static_cast<int32_t>(COMMAND_AT);
}

void copy_frame(const receive_area &from, int32_t offset, std::span<uint8_t> reply) {
    const int32_t begin = static_cast<int32_t>(receive_area::HEADROOM) + offset;
    std::ranges::copy(std::span(from.bytes).subspan(static_cast<size_t>(begin), reply.size()),
                      reply.begin());
}

int64_t wait_figure_us(timeval &start, const timeval &before, const timeval &after) {
    int64_t figure_us = microseconds_between(before, after);
    if (figure_us > DEADLINE_US)
        start = after;
    else
        figure_us = microseconds_between(start, after);
    return figure_us > DEADLINE_US || figure_us < 0 ? 0 : figure_us;
}
