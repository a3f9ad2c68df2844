#include "simulator/line/uart/receiver.h"

#include <algorithm>
#include <asm/termbits.h>

namespace simulator::line {

namespace {

constexpr int64_t TIMEOUT_CHARACTERS = 4;

} // namespace

void receiver::configure(const line_format &wanted, uint32_t flags, bool enabled) {
    timeout = TIMEOUT_CHARACTERS * character_ns(wanted);
    wire_sampler.set_format(wanted);
    input_flags = flags;
    is_enabled = enabled;
}

void receiver::listen(bool wanted) {
    listening = wanted;
    fifo.clear();
}

int64_t receiver::timeout_time() const {
    return fifo.empty() ? NEVER : fifo.back().time + timeout;
}

void receiver::advance(int64_t now) {
    while (const auto received = wire_sampler.next(now)) {
        if (!listening)
            continue;
        fifo.push_back(*received);
        if (fifo.size() >= trigger)
            deliver();
    }
    if (timeout_time() <= now)
        deliver();
}

int64_t receiver::next_event_time() const {
    const size_t missing = trigger - std::min(trigger - 1, fifo.size());
    return std::min(wire_sampler.time_of(missing), timeout_time());
}

void receiver::deliver() {
    for (const received_character &received : fifo)
        take(received);
    fifo.clear();
}

// Follows read_status_mask and ignore_status_mask of the kernel's 8250 driver.
void receiver::take(const received_character &received) {
    counts.received++;
    counts.breaks += received.is_break ? 1 : 0;
    counts.parity_errors += !received.is_break && received.parity_error ? 1 : 0;
    counts.framing_errors +=
        !received.is_break && !received.parity_error && received.framing_error ? 1 : 0;

    const bool checks = (input_flags & INPCK) != 0;
    const bool sees_breaks = (input_flags & (IGNBRK | BRKINT | PARMRK)) != 0;
    const bool is_break = received.is_break && sees_breaks;
    const bool is_bad =
        checks && !received.is_break && (received.parity_error || received.framing_error);
    const bool ignored =
        (is_break && (input_flags & IGNBRK) != 0) || (is_bad && (input_flags & IGNPAR) != 0);
    if (!is_enabled || ignored)
        return;
    character_mark mark = character_mark::normal;
    if (is_break)
        mark = character_mark::break_seen;
    else if (is_bad)
        mark = received.parity_error ? character_mark::parity_error : character_mark::framing_error;
    delivered.push_back({received.data, mark});
}

} // namespace simulator::line
