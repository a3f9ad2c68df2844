// The receive FIFO of a UART and the driver that empties it.
//
// The chip interrupts when 8 bytes wait in the FIFO, or when some wait and nothing has come for the
// time of four characters (16550A with the driver's trigger level). Only then does the driver take
// them, mark those that came with an error, and hand them to the line discipline. A reader thus
// sees a long block in groups of 8 and its end a little later than it arrived.
//
// Which errors are marked, and which characters are not handed on at all, is decided by c_iflag and
// CREAD, as in the kernel's driver: without INPCK a wrong parity is not even looked at.
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
    int lost = 0; // no room left between driver and line discipline
};

class receiver {
public:
    // Bytes in the FIFO that raise the interrupt: 1, 4, 8 or 14 on a 16550A.
    size_t trigger = 8;

    // `flags` are those of c_iflag. Without `enabled` (CREAD) characters are counted and dropped.
    void configure(const line_format &wanted, uint32_t flags, bool enabled);
    // A closed port hears nothing: its FIFO is cleared at opening, and the interrupt is off.
    void listen(bool wanted);

    // Passes characters to the sampler.
    sampler &wire_end() {
        return ear;
    }

    void advance(int64_t now);
    // What the driver has taken from the FIFO and nobody has fetched. Who does, clears it.
    std::vector<received_byte> delivered;

    int64_t next_event_time() const;

    receive_counts counts;

private:
    int64_t timeout_time() const;
    void deliver();
    void take(const heard_character &heard);

    sampler ear;
    int64_t timeout = 0;
    uint32_t input_flags = 0;
    bool is_enabled = true;
    bool listening = false;
    std::vector<heard_character> fifo;
};

} // namespace simulator::line
