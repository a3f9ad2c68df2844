#include "simulator/devices/serial/line_faults.h"

#include "simulator/time/clock.h"

namespace simulator {

void line_faults::add(const fault &wanted) {
    faults.push_back(wanted);
}

bool line_faults::strikes(const fault &present) const {
    const int64_t now = now_us();
    if (present.kind->id == fault_id::cut)
        return present.strikes(now);
    if (present.kind->id == fault_id::pull)
        return chunks > static_cast<uint32_t>(present.numbers[0]) && present.strikes(now);
    return present.strikes_nth(now, chunks);
}

bool line_faults::pass(std::vector<uint8_t> &chunk) {
    chunks++;
    bool arrives = true;
    for (const fault &present : faults) {
        if (!strikes(present))
            continue;
        if (present.kind->id == fault_id::flip) {
            // Another byte and bit each time.
            chunk[bits_flipped % chunk.size()] ^= static_cast<uint8_t>(1U << bits_flipped % 8);
            bits_flipped++;
        } else {
            arrives = false;
        }
    }
    return arrives;
}

} // namespace simulator
