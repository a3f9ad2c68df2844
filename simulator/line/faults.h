// The faults of one direction of a cable. The base class is a good cable; the board derives its
// faults from it. Each call gives the time in question, so a fault can have windows of time.
#pragma once

#include "simulator/line/uart/wire.h"

#include <vector>

namespace simulator::line {

// One character on its way. A fault changes it in place.
struct passing_character {
    int64_t time; // its start bit begins
    int64_t end;  // its last stop bit ends
    uint8_t data;
    bool lost = false;
    bool framing_error = false;         // its stop bit arrives low
    std::vector<uint8_t> inserted = {}; // arrive right after it
};

// One frame on its way. The receiver drops a damaged frame, because its check is wrong. Bytes that
// change without `damaged` reach the reader, as if the chip damaged them after its check.
struct passing_frame {
    int64_t time; // its closing flag ends
    std::vector<uint8_t> bytes;
    bool lost = false;
    bool damaged = false;
};

struct line_faults {
    virtual ~line_faults() = default;

    // Called once for each character and frame, in order. A character passes when it enters the
    // FIFO, up to 16 characters before its time.
    virtual void strike(passing_character &passing) {
        (void)passing;
    }
    virtual void strike(passing_frame &passing) {
        (void)passing;
    }
    // True while the line stalls: the sending driver cannot pass on anything.
    virtual bool stalls(int64_t now) const {
        (void)now;
        return false;
    }
    // How many per cent too fast the sending end's clock is; negative: too slow.
    virtual int clock_error_percent(int64_t now) const {
        (void)now;
        return 0;
    }
    // The modem lines that arrive (TIOCM_CTS, TIOCM_CAR, TIOCM_DSR), given the lines that should
    // arrive.
    virtual uint32_t modem_lines(int64_t now, uint32_t driven) const {
        (void)now;
        return driven;
    }
    // The first time after `now` at which one of the three above changes.
    virtual int64_t next_change(int64_t now) const {
        (void)now;
        return NEVER;
    }
};

} // namespace simulator::line
