// The faults of one direction of a cable, as the operator asks for them. They strike chunks: what
// leaves without a pause on an asynchronous line (what one write sends, if the port was idle), a
// frame on a synchronous one. Which chunk and which bit is the same in every run.
//
// A frame with a wrong bit is lost, since its receiver's check is wrong.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/line/faults.h"

#include <cstdint>
#include <vector>

namespace simulator {

// Counts the chunks that leave or reach a port, which may go away with one of them.
struct chunk_counter {
    uint32_t limit = 0; // 0: it never goes away
    uint32_t passed = 0;

    bool has_struck() const {
        return limit != 0 && passed >= limit;
    }
};

struct port_faults final : line::line_faults {
    bool lines_wired = true; // RTS and DTR of the sending end arrive

    void add(const fault &wanted);
    // The counter must live as long as the cable.
    void count_in(chunk_counter &counter);

    void strike(line::passing_character &passing) override;
    void strike(line::passing_frame &passing) override;
    uint32_t modem_lines(int64_t now, uint32_t driven) const override;

private:
    // What becomes of the chunk that passes.
    struct fate {
        bool lost = false;
        int flips = 0; // bits of it
    };

    void begin_chunk();
    bool strikes(const fault &present) const;

    std::vector<fault> faults;
    std::vector<chunk_counter *> counters;
    uint32_t chunks = 0; // lost ones included
    fate current;
    unsigned bits_flipped = 0;
    int64_t line_idle_at = 0; // the last character has ended
    size_t position = 0;      // in the chunk
};

} // namespace simulator
