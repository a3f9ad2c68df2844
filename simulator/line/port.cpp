#include "simulator/line/port.h"

#include "simulator/line/requests.h"

#include <algorithm>
#include <asm/termios.h>
#include <cerrno>

namespace simulator::line {

namespace {

constexpr size_t FRAMES_KEPT = 64; // received and unread; more are lost

} // namespace

port::port(port_kind hardware) : line_end(hardware.is_synchronous), kind(hardware) {
    change_settings(0, settings);
}

// Opening and closing.

outcome port::open(int64_t now, open_call &call) {
    advance_cable(now);
    if (is_gone)
        return {-EIO};
    if (is_closing())
        return {.is_waiting = true};
    if (!call.is_counted && open_count++ == 0)
        input.listen(true);
    call.is_counted = true;
    if (!hangs_up(settings))
        raise_lines(TIOCM_DTR | TIOCM_RTS);
    advance_cable(now);
    if (!call.nonblocking && !sees_carrier())
        return {.is_waiting = true};
    return {};
}

void port::close(int64_t now) {
    advance_cable(now);
    if (--open_count > 0)
        return;
    is_draining = true;
    closing_until = closing_time(now);
    if (output.is_held(HELD_BY_CALL))
        flush_output(); // the driver does not wait for it, but it does for XON and CTS
    if (drain_time() <= now || closing_wait == 0 || is_hung_up)
        finish_close(now);
    advance_cable(now);
}

void port::end_close(int64_t now) {
    advance_cable(now);
    if (is_closing())
        finish_close(now);
    advance_cable(now);
}

void port::finish_close(int64_t now) {
    is_draining = false;
    closing_until = NEVER;
    writing = nullptr; // by a process that was killed
    end_break(now);
    is_hung_up = is_gone;
    flush_output();
    for (const hold_reason reason : {HELD_BY_XOFF, HELD_BY_CALL})
        output.hold(0, reason, false); // nothing is left to send
    tty.close();
    received_frames.clear();
    input.listen(false);
    is_throttled = false;
    if ((settings.c_cflag & HUPCL) != 0)
        lower_lines(TIOCM_DTR | TIOCM_RTS);
    change_count++;
}

void port::hang_up(int64_t now, bool for_good) {
    advance_cable(now);
    is_hung_up = true;
    is_gone = is_gone || for_good;
    end_break(now);
    flush_output();
    tty.close();
    received_frames.clear();
    input.listen(false);
    if ((settings.c_cflag & HUPCL) != 0)
        lower_lines(TIOCM_DTR | TIOCM_RTS);
    change_count++;
    advance_cable(now);
}

// Modem lines.

bool port::sees_carrier() const {
    return (settings.c_cflag & CLOCAL) != 0 || (inputs & TIOCM_CAR) != 0;
}

void port::raise_lines(uint32_t lines) {
    outputs |= lines;
    raised = kind.has_modem_lines ? outputs & (TIOCM_DTR | TIOCM_RTS) : 0;
}

void port::lower_lines(uint32_t lines) {
    outputs &= ~lines;
    raised &= ~lines;
}

void port::hold_for_cts(int64_t now) {
    const bool waits = (settings.c_cflag & CRTSCTS) != 0 && (inputs & TIOCM_CTS) == 0;
    output.hold(now, HELD_BY_CTS, waits);
}

void port::take_lines(int64_t now, uint32_t arriving_lines) {
    const uint32_t before = inputs;
    inputs = kind.has_modem_lines ? arriving_lines : 0;
    if (inputs == before)
        return;
    change_count++;
    const uint32_t changed = is_open() ? before ^ inputs : 0; // a closed port has no interrupts
    changes_seen.cts += (changed & TIOCM_CTS) != 0 ? 1 : 0;
    changes_seen.dsr += (changed & TIOCM_DSR) != 0 ? 1 : 0;
    changes_seen.dcd += (changed & TIOCM_CAR) != 0 ? 1 : 0;
    hold_for_cts(now);
    const bool carrier_lost = (before & TIOCM_CAR) != 0 && (inputs & TIOCM_CAR) == 0;
    if (carrier_lost && is_open() && !sees_carrier())
        hang_up(now, false);
}

// Asks the far end to pause when the reader falls behind, and to go on when it has caught up
// (IXOFF, CRTSCTS).
void port::throttle(int64_t now) {
    const bool wanted = is_throttled ? !tty.wants_release() : tty.wants_throttle();
    if (wanted == is_throttled)
        return;
    is_throttled = wanted;
    if ((settings.c_iflag & IXOFF) != 0)
        send_flow_control(now, wanted ? VSTOP : VSTART);
    if ((settings.c_cflag & CRTSCTS) != 0 && wanted)
        lower_lines(TIOCM_RTS);
    else if ((settings.c_cflag & CRTSCTS) != 0)
        raise_lines(TIOCM_RTS);
}

// A character that is disabled is not sent.
void port::send_flow_control(int64_t now, int character) {
    if (settings.c_cc[character] != 0)
        output.put_first(now, settings.c_cc[character]);
}

// Settings.

bool port::carries_frames() const {
    return is_synchronous && is_raw(settings) && std::ranges::equal(sync_mode, SYNC_MODE);
}

void port::change_settings(int64_t now, tty_settings wanted) {
    resolve_speeds(wanted, settings);
    const bool hung_up_before = hangs_up(settings);
    settings = wanted;
    processing.set_settings(settings);
    tty.set_settings(now, settings);
    input.configure(format_of(settings), settings.c_iflag, (settings.c_cflag & CREAD) != 0);
    change_format(now, format_of(settings));
    if (hangs_up(settings))
        lower_lines(TIOCM_DTR | TIOCM_RTS);
    else if (hung_up_before)
        raise_lines(TIOCM_DTR | TIOCM_RTS);
    hold_for_cts(now);
    change_count++;
}

// From the cable.

void port::settle(int64_t now, uint32_t arriving_lines) {
    if (!input.delivered.empty()) {
        input.counts.lost += static_cast<int>(tty.receive(now, input.delivered));
        input.delivered.clear();
        throttle(now);
        change_count++;
    }
    take_lines(now, arriving_lines);
    const size_t queued = output.queued() + frames.queued();
    if (queued != queued_before || (drained_before != drain_time() && drain_time() <= now))
        change_count++;
    queued_before = queued;
    if (drain_time() <= now)
        drained_before = drain_time();
    if (is_closing() && (drain_time() <= now || closing_until <= now))
        finish_close(now);
}

void port::take_frame(int64_t, const line_frame &frame) {
    line_format sender = format_of(settings);
    sender.bps = frame.bps;
    const bool is_received = is_open() && !is_hung_up && carries_frames() &&
                             (settings.c_cflag & CREAD) != 0 && agree(sender, format_of(settings));
    if (!is_received)
        return;
    input.counts.received += static_cast<int>(frame.bytes.size());
    if (received_frames.size() >= FRAMES_KEPT) {
        input.counts.lost += static_cast<int>(frame.bytes.size());
        return;
    }
    received_frames.push_back(frame.bytes);
    change_count++;
}

int64_t port::drain_time() const {
    return std::max(output.drain_time(), frames.drain_time());
}

void port::flush_input(int64_t now, bool with_flip_buffers) {
    tty.flush_input(now, with_flip_buffers);
    received_frames.clear();
    throttle(now);
}

void port::flush_output() {
    output.flush();
    frames.flush();
    change_count++;
}

} // namespace simulator::line
