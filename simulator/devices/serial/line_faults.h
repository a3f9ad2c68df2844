// The faults of one direction of a line: they strike the chunks that pass along it. Which chunk and
// which bit is the same in every run.
#pragma once

#include "simulator/faults/fault.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulator {

struct line_faults {
    void add(const fault &wanted);

    // Counts the chunk and breaks what is to be broken in it. False when it is lost.
    bool pass(std::vector<uint8_t> &chunk);

private:
    bool strikes(const fault &present) const;

    std::vector<fault> faults;
    uint32_t chunks = 0; // lost ones included
    size_t bits_flipped = 0;
};

} // namespace simulator
