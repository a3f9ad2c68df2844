// The faults of one direction of a serial line. They strike what leaves a port, and the modem lines
// that arrive at the other end. They damage the same bytes and bits in every run.
//
// Give one object for each direction to cable::set_faults, for the end that sends. A fault belongs
// to the direction that leaves its port; a stuck modem line belongs to the direction that arrives
// at its port, see `leaves`. A loop has one direction, which takes both. An RTS that is not wired
// is a fault of both directions of its cable.
//
// A chunk is a run of bytes without a gap on an asynchronous line, and a frame on a synchronous
// one.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/line/faults.h"

#include <cstdint>
#include <vector>

namespace simulator {

// A port that goes away with a chunk that leaves or reaches it; that chunk is lost.
struct port_hangup {
    std::vector<fault> rows;
    uint32_t chunks = 0; // that have left and reached the port

    bool is_due(int64_t now_us) const;
    // When it may become due without another chunk: a window begins. NEVER if it cannot.
    int64_t next_change(int64_t now_us) const;
    void count_strikes(int64_t now_us) const;
    bool can_come() const {
        return !rows.empty();
    }

private:
    bool has_come_to(const fault &row) const;
};

class direction_faults final : public line::line_faults {
public:
    // True if the fault belongs to the direction that leaves its port, false if to the one that
    // arrives.
    static bool leaves(const fault &wanted);
    void add(const fault &wanted);

    // The chunks of this direction leave or reach that port, which must live as long as the cable.
    void count_in(port_hangup &port);

    void strike(line::passing_character &passing) override;
    void strike(line::passing_frame &passing) override;
    bool stalls(int64_t now) const override;
    int clock_error_percent(int64_t now) const override;
    uint32_t modem_lines(int64_t now, uint32_t driven) const override;
    int64_t next_change(int64_t now) const override;

private:
    void count_chunk(int64_t time);
    void begin_chunk(int64_t time);
    void strike(const fault &present, line::passing_character &passing);
    void strike(const fault &present, line::passing_frame &passing);
    bool loses_chunk(const fault &present, int64_t time) const;

    // A state counts as one strike each time it begins to have an effect.
    struct present_fault {
        fault row;
        mutable bool shows = false;
        bool loses = false; // the current chunk
        bool flips = false; // a bit of the current chunk is still to be flipped
    };
    static void note(const present_fault &each, bool shows);

    std::vector<present_fault> faults;
    std::vector<port_hangup *> hangups; // a loop's port is here twice
    uint32_t chunks = 0;                // lost ones included
    bool is_port_gone = false;
    uint32_t characters = 0;
    int64_t chunk_end = -1;   // of the last character
    uint32_t chunk_bytes = 0; // of the current chunk so far
    uint32_t bits_flipped = 0;
    uint32_t bytes_garbled = 0;
};

} // namespace simulator
