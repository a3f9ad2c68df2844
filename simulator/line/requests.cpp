#include "simulator/line/requests.h"

#include "simulator/line/port_requests.h"

#include <algorithm>
#include <asm/ioctls.h>
#include <asm/termios.h>
#include <cerrno>
#include <cstring>

namespace simulator::line {

namespace {

// The structures differ only in the speeds at the end.
constexpr size_t OLD_BYTES = sizeof(::termios);
constexpr size_t NEW_BYTES = sizeof(::termios2);
constexpr size_t INT_BYTES = sizeof(int32_t);
static_assert(offsetof(::termios2, c_cc) == offsetof(::termios, c_cc) && NEW_BYTES >= OLD_BYTES);
static_assert(NEW_BYTES <= REQUEST_BYTES && sizeof(serial_struct) <= REQUEST_BYTES);

constexpr int64_t BREAK = 250 * MILLISECOND;

struct known_request {
    request_shape shape;
    port_requests::handler handler;
};

constexpr known_request REQUESTS[] = {
    //                  name           bytes     from the program, to it
    {{TCGETS, "TCGETS", OLD_BYTES, false, true}, port_requests::get_settings},
    {{TCGETS2, "TCGETS2", NEW_BYTES, false, true}, port_requests::get_settings},
    {{TCSETS, "TCSETS", OLD_BYTES, true, false}, port_requests::set_settings},
    {{TCSETSW, "TCSETSW", OLD_BYTES, true, false}, port_requests::set_settings},
    {{TCSETSF, "TCSETSF", OLD_BYTES, true, false}, port_requests::set_settings},
    {{TCSETS2, "TCSETS2", NEW_BYTES, true, false}, port_requests::set_settings},
    {{TCSETSW2, "TCSETSW2", NEW_BYTES, true, false}, port_requests::set_settings},
    {{TCSETSF2, "TCSETSF2", NEW_BYTES, true, false}, port_requests::set_settings},
    {{TCFLSH, "TCFLSH", 0, false, false}, port_requests::flush},
    {{TIOCSTI, "TIOCSTI", 1, true, false}, port_requests::insert_input},
    {{TCXONC, "TCXONC", 0, false, false}, port_requests::control_flow},
    {{TCSBRK, "TCSBRK", 0, false, false}, port_requests::send_break},
    {{TCSBRKP, "TCSBRKP", 0, false, false}, port_requests::send_break},
    {{TIOCSBRK, "TIOCSBRK", 0, false, false}, port_requests::begin_break},
    {{TIOCCBRK, "TIOCCBRK", 0, false, false}, port_requests::end_break},
    {{TIOCMGET, "TIOCMGET", INT_BYTES, false, true}, port_requests::get_lines},
    {{TIOCMSET, "TIOCMSET", INT_BYTES, true, false}, port_requests::set_lines},
    {{TIOCMBIS, "TIOCMBIS", INT_BYTES, true, false}, port_requests::set_lines},
    {{TIOCMBIC, "TIOCMBIC", INT_BYTES, true, false}, port_requests::set_lines},
    {{TIOCMIWAIT, "TIOCMIWAIT", 0, false, false}, port_requests::wait_for_lines},
    {{TIOCGSERIAL, "TIOCGSERIAL", sizeof(serial_struct), false, true},
     port_requests::get_driver_settings},
    {{TIOCSSERIAL, "TIOCSSERIAL", sizeof(serial_struct), true, false},
     port_requests::set_driver_settings},
    {{TIOCGSOFTCAR, "TIOCGSOFTCAR", INT_BYTES, false, true}, port_requests::get_local},
    {{TIOCSSOFTCAR, "TIOCSSOFTCAR", INT_BYTES, true, false}, port_requests::set_local},
    {{TIOCSERGETLSR, "TIOCSERGETLSR", INT_BYTES, false, true}, port_requests::get_line_status},
    {{FIONREAD, "FIONREAD", INT_BYTES, false, true}, port_requests::count_input},
    {{TIOCOUTQ, "TIOCOUTQ", INT_BYTES, false, true}, port_requests::count_output},
    {{TIOCGICOUNT, "TIOCGICOUNT", sizeof(serial_icounter_struct), false, true},
     port_requests::count_interrupts},
    {{SYNC_MODE_REQUEST, "SP_SYNC_CONFIG", sizeof SYNC_MODE, true, false},
     port_requests::set_sync_mode},
};

const known_request *find(uint32_t number) {
    const auto found = std::ranges::find_if(
        REQUESTS, [&](const known_request &each) { return each.shape.number == number; });
    return found != std::end(REQUESTS) ? found : nullptr;
}

bool is_one_of(uint32_t number, std::initializer_list<uint32_t> numbers) {
    return std::ranges::find(numbers, number) != numbers.end();
}

} // namespace

const request_shape *find_request(uint32_t number) {
    const known_request *found = find(number);
    return found != nullptr ? &found->shape : nullptr;
}

outcome port::request(int64_t now, request_call &call) {
    advance_cable(now);
    if (is_hung_up)
        return {-EIO};
    const known_request *known = find(call.number);
    if (known == nullptr)
        return {-ENOTTY};
    if (call.argument.size() < known->shape.argument_bytes)
        return {-EFAULT};
    const outcome answer = known->handler(*this, now, call);
    advance_cable(now);
    return answer;
}

bool port::interrupt_request(int64_t now, const request_call &call) {
    advance_cable(now);
    if (call.break_end != NEVER)
        end_break(now);
    advance_cable(now);
    return !is_one_of(call.number, {TCSBRK, TCSBRKP, TIOCSBRK});
}

outcome port_requests::wait_for_drain(port &asked, int64_t now) {
    const int64_t drained = asked.drain_time();
    return drained <= now ? outcome{} : outcome{.is_waiting = true, .until = drained};
}

outcome port_requests::get_settings(port &asked, int64_t, request_call &call) {
    const size_t bytes = call.number == TCGETS ? OLD_BYTES : NEW_BYTES;
    memcpy(call.argument.data(), &asked.settings, bytes);
    return {};
}

// The kernel discards the input first and then waits: input that arrives meanwhile stays.
outcome port_requests::set_settings(port &asked, int64_t now, request_call &call) {
    const bool flushes = is_one_of(call.number, {TCSETSF, TCSETSF2});
    const bool waits = flushes || is_one_of(call.number, {TCSETSW, TCSETSW2});
    if (flushes && !call.is_begun)
        asked.flush_input(now, false);
    call.is_begun = true;
    if (const outcome drain = wait_for_drain(asked, now); waits && drain.is_waiting)
        return drain;
    const bool is_old = is_one_of(call.number, {TCSETS, TCSETSW, TCSETSF});
    tty_settings wanted = asked.settings;
    memcpy(&wanted, call.argument.data(), is_old ? OLD_BYTES : NEW_BYTES);
    asked.change_settings(now, wanted);
    return {};
}

outcome port_requests::flush(port &asked, int64_t now, request_call &call) {
    if (call.value > TCIOFLUSH)
        return {-EINVAL};
    if (call.value != TCOFLUSH)
        asked.flush_input(now, true);
    if (call.value != TCIFLUSH)
        asked.flush_output();
    return {};
}

// A process with CAP_SYS_ADMIN, as the board's are, may do that on any terminal, see ioctl_tty(2).
outcome port_requests::insert_input(port &asked, int64_t now, request_call &call) {
    const received_byte inserted = {call.argument[0], character_mark::normal};
    (void)asked.tty.receive(now, std::span(&inserted, 1)); // lost if the buffers are full
    asked.throttle(now);
    asked.change_count++;
    return {};
}

// TCOON after TCOOFF also lets go what XOFF has stopped; without TCOOFF it does nothing
// (n_tty_ioctl_helper in drivers/tty/tty_ioctl.c).
outcome port_requests::control_flow(port &asked, int64_t now, request_call &call) {
    switch (call.value) {
    case TCOOFF:
        asked.output.hold(now, HELD_BY_CALL, true);
        return {};
    case TCOON:
        if (asked.output.is_held(HELD_BY_CALL))
            for (const hold_reason reason : {HELD_BY_CALL, HELD_BY_XOFF})
                asked.output.hold(now, reason, false);
        return {};
    case TCIOFF:
    case TCION:
        asked.send_flow_control(now, call.value == TCIOFF ? VSTOP : VSTART);
        return {};
    default:
        return {-EINVAL};
    }
}

// As tty_ioctl of the kernel's drivers/tty/tty_io.c: all but TIOCCBRK first wait for the output.
// TCSBRK with a value is then over (tcdrain(3)); TCSBRKP counts in tenths of a second. Both hold
// the line low and return when it is high again.
outcome port_requests::send_break(port &asked, int64_t now, request_call &call) {
    if (call.break_end == NEVER) {
        const outcome drain = wait_for_drain(asked, now);
        if (drain.is_waiting || (call.number == TCSBRK && call.value != 0))
            return drain;
        const auto tenths = static_cast<int64_t>(call.value);
        call.break_end = now + (tenths > 0 ? tenths * SECOND / 10 : BREAK);
        asked.begin_break(now);
    }
    if (now < call.break_end)
        return {.is_waiting = true, .until = call.break_end};
    asked.end_break(now);
    return {};
}

// A break that is not ended lasts until the last close.
outcome port_requests::begin_break(port &asked, int64_t now, request_call &) {
    const outcome drain = wait_for_drain(asked, now);
    if (!drain.is_waiting)
        asked.begin_break(now);
    return drain;
}

outcome port_requests::end_break(port &asked, int64_t now, request_call &) {
    asked.end_break(now);
    return {};
}

} // namespace simulator::line
