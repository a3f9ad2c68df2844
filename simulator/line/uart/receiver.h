// The receive FIFO of a UART and the driver that empties it.
//
// The chip interrupts when 8 bytes wait in the FIFO, or when some wait and nothing has come for the
// time of four characters (16550A with the driver's trigger level). The driver then takes them,
// marks those with an error, and hands them to the line discipline. So a reader sees a long block
// in groups of 8, and its end a little later than it arrived.
//
// As in the kernel's driver, c_iflag and CREAD decide which errors are marked and which characters
// are dropped. Without INPCK the driver ignores parity errors.
#pragma once

#include "simulator/line/uart/sampler.h"

#include <vector>

namespace simulator::line {

enum class character_mark : uint8_t { normal, break_seen, parity_error, framing_error };

struct received_byte {
    uint8_t data;
    character_mark mark;
};

// What the driver has counted since the board was switched on, as TIOCGICOUNT reports it.
struct receive_counts {
    int received = 0;
    int framing_errors = 0;
    int parity_errors = 0;
    int breaks = 0;
    int lost = 0; // flip buffers were full
};

class receiver {
public:
    // Bytes in the FIFO that raise the interrupt: 1, 4, 8 or 14 on a 16550A.
    size_t trigger = 8;

    // `flags` are those of c_iflag. Without `enabled` (CREAD) characters are counted and dropped.
    void configure(const line_format &wanted, uint32_t flags, bool enabled);
    // A closed port receives nothing: the interrupt is off, and an open clears the FIFO.
    void listen(bool wanted);

    // Passes characters to the sampler.
    sampler &wire_end() {
        return wire_sampler;
    }

    void advance(int64_t now);
    // What the driver has taken from the FIFO. The user of these bytes clears them.
    std::vector<received_byte> delivered;

    int64_t next_event_time() const;

    receive_counts counts;

private:
    int64_t timeout_time() const;
    void deliver();
    void take(const received_character &received);

    sampler wire_sampler;
    int64_t timeout = 0;
    uint32_t input_flags = 0;
    bool is_enabled = true;
    bool listening = false;
    std::vector<received_character> fifo;
};

} // namespace simulator::line
