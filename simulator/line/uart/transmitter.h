// The sending half of a UART and its driver: a queue that writes fill, a FIFO of 16 bytes, and the
// shift register that puts one bit after the other on the wire.
//
// The driver moves up to 16 bytes from the queue into the FIFO when the FIFO has run empty, while
// the last byte of the load before is still being shifted out; so the wire never pauses while there
// is something to send. What is in the FIFO leaves, whatever happens to the queue: flow control and
// a flush only reach what the driver still has. Therefore the unit of the simulation is a load: its
// characters are given to the wire at once, each with its own times.
//
// The bytes of a load keep their places in the queue until the FIFO is empty. A write of 20000
// bytes to an idle port is thus answered with 4095, the next one with nothing (measured on the
// kernel's 8250 driver).
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

// Why a driver holds its output back. Each reason comes and goes on its own.
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
    // Sends one character before all others, also while output is held: XON or XOFF.
    void put_first(int64_t now, uint8_t byte);
    // Holds the wire low; the caller has waited until everything has left.
    void send_break(int64_t now, int64_t duration_ns);
    // Forgets what is queued. What is in the FIFO still leaves.
    void flush();

    void hold(int64_t now, hold_reason reason, bool held);
    bool is_held(hold_reason reason) const {
        return (holds & reason) != 0;
    }

    // For what is loaded from now on, see `reload` for the rest.
    void set_format(const line_format &wanted);
    // A fault: the bits leave so many per cent faster, or slower if it is negative.
    void set_clock_error(int percent) {
        if (percent != clock_error_percent)
            run_clock(percent);
    }

    // Loads the FIFO at each moment up to `now` at which that is due.
    void advance(int64_t now);
    // The characters of the loads that nobody has passed on, in order. Who does, clears them.
    std::vector<character> loaded;

    // Gives new times to characters of the FIFO that have not started at a change of the format.
    // They are loaded again.
    void reload(int64_t now, std::vector<character> not_started);

    // The end of the last stop bit of everything queued so far; NEVER while the queue is not empty
    // beyond the FIFO, since that depends on flow control.
    int64_t drain_time() const;
    bool is_drained(int64_t now) const {
        return drain_time() <= now;
    }

    // The next load, or the end of the last stop bit.
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
    size_t load_bytes = 0; // of the queue's front, now in the FIFO
    unsigned holds = 0;
    int64_t ready_since = 0;   // when there last came something to send
    int64_t fifo_empty_at = 0; // the last loaded byte moves to the shift register
    int64_t idle_at = 0;       // its last stop bit ends
    int64_t advanced_to = 0;
};

} // namespace simulator::line
