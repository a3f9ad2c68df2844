// The sending half of a UART and its driver: a queue that write(2) fills, a FIFO of 16 bytes, and
// the shift register that puts the bits on the wire.
//
// The driver moves up to 16 bytes (a load) from the queue into the FIFO when the FIFO is empty. The
// last byte of the previous load is still in the shift register then, so the wire never pauses
// while there is something to send. Bytes in the FIFO always leave: flow control and a flush affect
// only the queue. So the simulation works in loads: it gives all characters of a load to the wire
// at once, each with its own times.
//
// The bytes of a load stay in the queue until the FIFO is empty. A write of 20000 bytes to an idle
// port therefore takes 4095, and the next write takes none (measured on the kernel's 8250 driver).
#pragma once

#include "simulator/line/uart/wire.h"

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace simulator::line {

constexpr size_t TRANSMIT_QUEUE_BYTES = 4095; // a page of the kernel's ring, less one
constexpr size_t FIFO_BYTES = 16;

// The reasons for which a driver holds its output. They are independent of each other.
enum hold_reason : unsigned {
    HELD_BY_XOFF = 1,  // the far end has sent the stop character (IXON)
    HELD_BY_CALL = 2,  // tcflow(TCOOFF)
    HELD_BY_CTS = 4,   // CTS is off (CRTSCTS)
    HELD_BY_FAULT = 8, // the line stalls
};

class transmitter {
public:
    size_t room() const {
        return TRANSMIT_QUEUE_BYTES - queue.size();
    }
    size_t queued() const {
        return queue.size();
    }

    // Queues as many bytes as there is room for and returns how many.
    size_t put(int64_t now, std::span<const uint8_t> bytes);
    // Sends one character (XON or XOFF) before all others, even while output is held.
    void put_first(int64_t now, uint8_t byte);
    // Drops the queue. Bytes in the FIFO still leave.
    void flush();

    void hold(int64_t now, hold_reason reason, bool held);
    bool is_held(hold_reason reason) const {
        return (holds & reason) != 0;
    }

    // For later loads; see `reload` for the characters in the FIFO.
    void set_format(const line_format &wanted);
    // A fault: the bits leave `percent` per cent faster, or slower if it is negative.
    void set_clock_error(int percent) {
        if (percent != clock_error_percent)
            run_clock(percent);
    }

    // Loads the FIFO whenever that is due up to `now`.
    void advance(int64_t now);
    // Characters loaded since the board was switched on.
    int sent_count() const {
        return sent;
    }
    // The characters of the new loads, in order. The cable passes them on and clears them.
    std::vector<character> loaded;

    // After a change of format: loads the characters of the FIFO that have not started again, with
    // new times.
    void reload(int64_t now, std::vector<character> not_started);

    // The end of the last stop bit of everything queued so far. NEVER while the queue has more than
    // the FIFO, because that depends on flow control.
    int64_t drain_time() const;
    bool is_drained(int64_t now) const {
        return drain_time() <= now;
    }

    // The next load, or the end of the last stop bit; now if characters wait for the cable.
    int64_t next_event_time() const;

private:
    void run_clock(int percent);
    bool has_more() const;
    int64_t load_time() const;
    void load(int64_t at);
    void shift_out(uint8_t byte, int64_t not_before);

    line_format nominal;
    line_format actual; // with the error of the clock
    int64_t one_character = character_ns(actual);
    int clock_error_percent = 0;
    std::deque<uint8_t> queue;
    std::optional<uint8_t> urgent;
    size_t load_bytes = 0; // at the front of the queue, now in the FIFO
    unsigned holds = 0;
    int sent = 0;
    int64_t ready_since = 0;   // when something to send last came
    int64_t fifo_empty_at = 0; // the last loaded byte moves to the shift register
    int64_t idle_at = 0;       // its last stop bit ends
    int64_t advanced_to = 0;
};

} // namespace simulator::line
