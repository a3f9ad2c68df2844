#include "simulator/devices/serial/port_faults.h"

namespace simulator {

namespace {

constexpr unsigned FLIPPED_PLACES = 3; // a flip strikes one of the first bytes, each in turn

} // namespace

void port_faults::add(const fault &wanted) {
    faults.push_back(wanted);
}

void port_faults::count_in(chunk_counter &counter) {
    counters.push_back(&counter);
}

bool port_faults::strikes(const fault &present) const {
    if (present.kind->id == fault_id::cut)
        return true;
    const auto number = static_cast<uint32_t>(present.numbers[0]);
    return present.kind->id == fault_id::pull ? chunks > number : chunks % number == 0;
}

void port_faults::begin_chunk() {
    chunks++;
    current = {};
    for (chunk_counter *counter : counters) {
        counter->passed++;
        current.lost = current.lost || counter->has_struck();
    }
    for (const fault &present : faults)
        if (strikes(present) && present.kind->id == fault_id::flip)
            current.flips++;
        else if (strikes(present))
            current.lost = true;
}

// Another byte and bit each time.
void port_faults::strike(line::passing_character &passing) {
    const int64_t duration = passing.end - passing.time;
    if (passing.time > line_idle_at + duration / 2 || chunks == 0) {
        begin_chunk();
        position = 0;
    }
    line_idle_at = passing.end;
    passing.lost = current.lost;
    if (current.flips > 0 && position == bits_flipped % FLIPPED_PLACES) {
        passing.data ^= static_cast<uint8_t>(1U << bits_flipped % 8);
        bits_flipped++;
        current.flips = 0;
    }
    position++;
}

void port_faults::strike(line::passing_frame &passing) {
    begin_chunk();
    passing.lost = current.lost;
    passing.damaged = current.flips > 0;
}

uint32_t port_faults::modem_lines(int64_t, uint32_t driven) const {
    return lines_wired ? driven : 0;
}

} // namespace simulator
