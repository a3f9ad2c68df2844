// The requests that the serial driver answers: modem lines, queues, counts and its own settings.
// Those of the terminal are in requests.cpp.
#include "simulator/line/port_requests.h"
#include "simulator/line/requests.h"

#include <algorithm>
#include <asm/termios.h>
#include <cerrno>
#include <cstring>
#include <utility>

namespace simulator::line {

namespace {

constexpr uint32_t OUTPUT_LINES = TIOCM_DTR | TIOCM_RTS | TIOCM_OUT1 | TIOCM_OUT2;
// The kernel's default, in hundredths of a second: of a port that waits for a carrier.
constexpr unsigned short CLOSE_DELAY = 50;

outcome answer_int(request_call &call, size_t value) {
    const auto number = static_cast<int32_t>(value);
    memcpy(call.argument.data(), &number, sizeof number);
    return {};
}

} // namespace

outcome port_requests::get_lines(port &asked, int64_t, request_call &call) {
    return answer_int(call, asked.outputs | asked.inputs);
}

outcome port_requests::set_lines(port &asked, int64_t, request_call &call) {
    uint32_t lines = 0;
    memcpy(&lines, call.argument.data(), sizeof lines);
    lines &= OUTPUT_LINES;
    if (call.number == TIOCMSET)
        asked.lower_lines(OUTPUT_LINES & ~lines);
    if (call.number == TIOCMBIC)
        asked.lower_lines(lines);
    else
        asked.raise_lines(lines);
    return {};
}

// uart_wait_modem_status in drivers/tty/serial/serial_core.c: until one of the lines has changed.
outcome port_requests::wait_for_lines(port &asked, int64_t, request_call &call) {
    const line_changes now_seen = asked.changes_seen;
    if (!std::exchange(call.is_begun, true))
        call.lines_before = now_seen;
    const line_changes &before = call.lines_before;
    const auto changed = [&](uint32_t line, int seen_before, int seen) {
        return (call.value & line) != 0 && seen_before != seen;
    };
    const bool is_over = changed(TIOCM_CTS, before.cts, now_seen.cts) ||
                         changed(TIOCM_DSR, before.dsr, now_seen.dsr) ||
                         changed(TIOCM_CAR, before.dcd, now_seen.dcd);
    return {.is_waiting = !is_over};
}

// In hundredths of a second, see serial_struct in linux/serial.h.
outcome port_requests::get_driver_settings(port &asked, int64_t, request_call &call) {
    serial_struct told{};
    told.type = PORT_16550A;
    told.xmit_fifo_size = FIFO_BYTES;
    told.close_delay = CLOSE_DELAY;
    if (asked.closing_wait == 0)
        told.closing_wait = ASYNC_CLOSING_WAIT_NONE;
    else if (asked.closing_wait != NEVER)
        told.closing_wait = static_cast<unsigned short>(asked.closing_wait / (SECOND / 100));
    memcpy(call.argument.data(), &told, sizeof told);
    return {};
}

// Of all members only closing_wait has an effect here.
outcome port_requests::set_driver_settings(port &asked, int64_t, request_call &call) {
    serial_struct wanted{};
    memcpy(&wanted, call.argument.data(), sizeof wanted);
    if (wanted.closing_wait == ASYNC_CLOSING_WAIT_NONE)
        asked.closing_wait = 0;
    else if (wanted.closing_wait == ASYNC_CLOSING_WAIT_INF)
        asked.closing_wait = NEVER;
    else
        asked.closing_wait = wanted.closing_wait * (SECOND / 100);
    return {};
}

// CLOCAL alone, see ioctl_tty(2).
outcome port_requests::get_local(port &asked, int64_t, request_call &call) {
    return answer_int(call, (asked.settings.c_cflag & CLOCAL) != 0 ? 1 : 0);
}

outcome port_requests::set_local(port &asked, int64_t now, request_call &call) {
    int32_t is_local = 0;
    memcpy(&is_local, call.argument.data(), sizeof is_local);
    tty_settings wanted = asked.settings;
    wanted.c_cflag = (wanted.c_cflag & ~tcflag_t{CLOCAL}) | (is_local != 0 ? CLOCAL : 0U);
    asked.change_settings(now, wanted);
    return {};
}

// TIOCSER_TEMT if all has left (uart_get_lsr_info in drivers/tty/serial/serial_core.c).
outcome port_requests::get_line_status(port &asked, int64_t now, request_call &call) {
    return answer_int(call, asked.drain_time() <= now ? TIOCSER_TEMT : 0);
}

outcome port_requests::count_input(port &asked, int64_t, request_call &call) {
    if (!asked.carries_frames())
        return answer_int(call, asked.tty.readable());
    return answer_int(call,
                      asked.received_frames.empty() ? 0 : asked.received_frames.front().size());
}

outcome port_requests::count_output(port &asked, int64_t, request_call &call) {
    return answer_int(call, asked.output.queued() + asked.frames.queued());
}

// Since the board was switched on, see ioctl_tty(2). The FIFO never overruns here: the driver is as
// fast as the line.
outcome port_requests::count_interrupts(port &asked, int64_t, request_call &call) {
    const receive_counts &received = asked.input.counts;
    serial_icounter_struct counts{};
    counts.cts = asked.changes_seen.cts;
    counts.dsr = asked.changes_seen.dsr;
    counts.dcd = asked.changes_seen.dcd;
    counts.rx = received.received;
    counts.tx = asked.output.sent_count();
    counts.frame = received.framing_errors;
    counts.parity = received.parity_errors;
    counts.brk = received.breaks;
    counts.buf_overrun = received.lost;
    memcpy(call.argument.data(), &counts, sizeof counts);
    return {};
}

outcome port_requests::set_sync_mode(port &asked, int64_t, request_call &call) {
    if (!asked.is_synchronous)
        return {-ENOTTY};
    std::copy_n(call.argument.begin(), asked.sync_mode.size(), asked.sync_mode.begin());
    return {};
}

} // namespace simulator::line
