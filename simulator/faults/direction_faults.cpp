#include "simulator/faults/direction_faults.h"

#include "simulator/time/clock.h"

#include <algorithm>
#include <sys/ioctl.h>

namespace simulator {

namespace {

constexpr uint8_t INSERTED_BYTE = 0xA5;
constexpr uint32_t FLIPPED_PLACES = 3; // a flip strikes one of the first bytes, each in turn

int64_t in_us(int64_t line_time) {
    return line_time / NS_PER_US;
}

// Flips another bit each time.
void flip_bit(uint8_t &byte, uint32_t turn) {
    byte ^= static_cast<uint8_t>(1U << turn % 8);
}

uint32_t line_of(const fault &present) {
    return present.kind->id == fault_id::stuck_cts ? TIOCM_CTS : TIOCM_CAR;
}

uint32_t lines_with(const fault &present, uint32_t driven) {
    switch (present.kind->id) {
    case fault_id::lines:
        return driven & ~static_cast<uint32_t>(TIOCM_CTS | TIOCM_CAR);
    case fault_id::stuck_cts:
    case fault_id::stuck_dcd:
        return present.numbers[0] != 0 ? driven | line_of(present) : driven & ~line_of(present);
    default:
        return driven;
    }
}

} // namespace

bool port_hangup::has_come_to(const fault &row) const {
    return chunks >= static_cast<uint32_t>(row.numbers[0]);
}

bool port_hangup::is_due(int64_t now_us) const {
    return std::ranges::any_of(
        rows, [&](const fault &each) { return has_come_to(each) && each.is_active(now_us); });
}

int64_t port_hangup::next_change(int64_t now_us) const {
    int64_t next = NEVER;
    for (const fault &each : rows)
        if (has_come_to(each))
            next = std::min(next, each.next_change(now_us));
    return next;
}

void port_hangup::count_strikes(int64_t now_us) const {
    for (const fault &each : rows)
        if (has_come_to(each) && each.is_active(now_us))
            each.count_strike();
}

bool direction_faults::leaves(const fault &wanted) {
    return wanted.kind->id != fault_id::stuck_cts && wanted.kind->id != fault_id::stuck_dcd;
}

void direction_faults::add(const fault &wanted) {
    faults.push_back({.row = wanted});
}

void direction_faults::count_in(port_hangup &port) {
    hangups.push_back(&port);
}

bool direction_faults::loses_chunk(const fault &present, int64_t time) const {
    switch (present.kind->id) {
    case fault_id::drop:
        return present.strikes_nth(time, chunks);
    case fault_id::cut:
        return present.strikes(time);
    case fault_id::pull:
        return chunks > static_cast<uint32_t>(present.numbers[0]) && present.strikes(time);
    default:
        return false;
    }
}

void direction_faults::count_chunk(int64_t time) {
    chunks++;
    for (port_hangup *port : hangups) {
        port->chunks++;
        is_port_gone = is_port_gone || port->is_due(time);
    }
}

void direction_faults::begin_chunk(int64_t time) {
    count_chunk(time);
    chunk_bytes = 0;
    for (present_fault &each : faults) {
        each.loses = loses_chunk(each.row, time);
        each.flips = each.flips ||
                     (each.row.kind->id == fault_id::flip && each.row.strikes_nth(time, chunks));
    }
}

void direction_faults::strike(line::passing_character &passing) {
    if (chunk_end < 0 || passing.time > chunk_end)
        begin_chunk(in_us(passing.time));
    chunk_end = passing.end;
    characters++;
    passing.lost = is_port_gone;
    for (present_fault &each : faults) {
        passing.lost = passing.lost || each.loses;
        if (each.flips && chunk_bytes >= bits_flipped % FLIPPED_PLACES) {
            flip_bit(passing.data, bits_flipped++);
            each.flips = false;
        }
        strike(each.row, passing);
    }
    chunk_bytes++;
}

void direction_faults::strike(const fault &present, line::passing_character &passing) {
    const int64_t time = in_us(passing.time);
    switch (present.kind->id) {
    case fault_id::lost_byte:
        passing.lost = present.strikes_nth(time, characters) || passing.lost;
        break;
    case fault_id::inserted_byte:
        if (present.strikes_nth(time, characters))
            passing.inserted.push_back(INSERTED_BYTE);
        break;
    case fault_id::framing:
        passing.framing_error = present.strikes_nth(time, characters) || passing.framing_error;
        break;
    default:
        break;
    }
}

void direction_faults::strike(line::passing_frame &passing) {
    count_chunk(in_us(passing.time));
    passing.lost = is_port_gone;
    for (const present_fault &each : faults)
        strike(each.row, passing);
}

void direction_faults::strike(const fault &present, line::passing_frame &passing) {
    const int64_t time = in_us(passing.time);
    passing.lost = loses_chunk(present, time) || passing.lost;
    if (present.kind->id == fault_id::flip)
        passing.damaged = present.strikes_nth(time, chunks) || passing.damaged;
    if (present.kind->id != fault_id::garble || passing.bytes.empty() ||
        !present.strikes_nth(time, chunks))
        return;
    flip_bit(passing.bytes[bytes_garbled % passing.bytes.size()], bytes_garbled);
    bytes_garbled++;
}

void direction_faults::note(const present_fault &each, bool shows) {
    if (shows && !each.shows)
        each.row.count_strike();
    each.shows = shows;
}

bool direction_faults::stalls(int64_t now) const {
    bool stalled = false;
    for (const present_fault &each : faults)
        if (each.row.kind->id == fault_id::stall) {
            note(each, each.row.is_active(in_us(now)));
            stalled = stalled || each.shows;
        }
    return stalled;
}

int direction_faults::clock_error_percent(int64_t now) const {
    int percent = 0;
    for (const present_fault &each : faults)
        if (each.row.kind->id == fault_id::speed) {
            note(each, each.row.is_active(in_us(now)));
            percent += each.shows ? each.row.numbers[0] : 0;
        }
    return percent;
}

uint32_t direction_faults::modem_lines(int64_t now, uint32_t driven) const {
    uint32_t arriving = driven;
    for (const present_fault &each : faults) {
        const uint32_t changed = lines_with(each.row, arriving);
        if (each.row.kind->id == fault_id::lines || !leaves(each.row))
            note(each, changed != arriving && each.row.is_active(in_us(now)));
        arriving = each.row.is_active(in_us(now)) ? changed : arriving;
    }
    return arriving;
}

// A fault that strikes single bytes or frames changes no state; waking for it too does no harm.
int64_t direction_faults::next_change(int64_t now) const {
    int64_t next = NEVER;
    for (const present_fault &each : faults)
        next = std::min(next, each.row.next_change(in_us(now)));
    return next > line::NEVER / NS_PER_US ? line::NEVER : next * NS_PER_US;
}

} // namespace simulator
