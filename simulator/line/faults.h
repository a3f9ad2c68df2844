// What can be wrong with one direction of a cable. The board derives its faults from this; each
// function is asked with the time that it is about, so that a fault can have windows of time. The
// functions of the base class are those of a good cable.
#pragma once

#include "simulator/line/uart/wire.h"

#include <vector>

namespace simulator::line {

// One character on its way, to be changed in place.
struct passing_character {
    int64_t time; // its start bit begins
    int64_t end;  // its last stop bit ends
    uint8_t data;
    bool lost = false;
    bool framing_error = false;         // its stop bit arrives low
    std::vector<uint8_t> inserted = {}; // arrive right after it
};

// One frame on its way. The receiver drops a damaged one, since its check is wrong. Bytes that are
// changed without `damaged` reach the reader: a fault of the chip, after its check.
struct passing_frame {
    int64_t time; // its closing flag ends
    std::vector<uint8_t> bytes;
    bool lost = false;
    bool damaged = false;
};

struct line_faults {
    virtual ~line_faults() = default;

    // Each character and frame is offered once, in order; a character when it enters the FIFO, up
    // to 16 characters before its time.
    virtual void strike(passing_character &passing) {
        (void)passing;
    }
    virtual void strike(passing_frame &passing) {
        (void)passing;
    }
    // The line stalls: the driver at the sending end cannot hand on anything.
    virtual bool stalls(int64_t now) const {
        (void)now;
        return false;
    }
    // How many per cent too fast the sending end's clock is; negative: too slow.
    virtual int clock_error_percent(int64_t now) const {
        (void)now;
        return 0;
    }
    // The modem lines that arrive (TIOCM_CTS, TIOCM_CAR, TIOCM_DSR) for those that should.
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
