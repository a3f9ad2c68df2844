#include "simulator/line/uart/transmitter.h"

#include <algorithm>
#include <utility>

namespace simulator::line {

size_t transmitter::put(int64_t now, std::span<const uint8_t> bytes) {
    if (!has_more())
        ready_since = now;
    const size_t taken = std::min(bytes.size(), room());
    queue.insert(queue.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(taken));
    return taken;
}

void transmitter::put_first(int64_t now, uint8_t byte) {
    if (!has_more())
        ready_since = now;
    urgent = byte;
}

void transmitter::flush() {
    queue.clear();
    load_bytes = 0;
}

void transmitter::hold(int64_t now, hold_reason reason, bool held) {
    const bool had_more = has_more();
    holds = held ? holds | reason : holds & ~static_cast<unsigned>(reason);
    if (!had_more)
        ready_since = now;
}

void transmitter::set_format(const line_format &wanted) {
    nominal = wanted;
    run_clock(clock_error_percent);
}

void transmitter::run_clock(int percent) {
    clock_error_percent = percent;
    actual = nominal;
    actual.bps =
        static_cast<uint32_t>(std::max(int64_t{1}, int64_t{nominal.bps} * (100 + percent) / 100));
    one_character = character_ns(actual);
}

bool transmitter::has_more() const {
    return urgent.has_value() || (holds == 0 && queue.size() > load_bytes);
}

int64_t transmitter::load_time() const {
    return has_more() ? std::max(fifo_empty_at, ready_since) : NEVER;
}

void transmitter::advance(int64_t now) {
    advanced_to = std::max(advanced_to, now);
    for (;;) {
        if (load_bytes > 0 && fifo_empty_at <= now) {
            queue.erase(queue.begin(), queue.begin() + static_cast<ptrdiff_t>(load_bytes));
            load_bytes = 0;
        }
        if (load_time() > now)
            return;
        load(load_time());
    }
}

void transmitter::load(int64_t at) {
    if (urgent) {
        sent++;
        shift_out(*std::exchange(urgent, std::nullopt), at);
        return;
    }
    load_bytes = std::min(FIFO_BYTES, queue.size());
    sent += static_cast<int>(load_bytes);
    for (size_t i = 0; i < load_bytes; i++)
        shift_out(queue[i], at);
}

void transmitter::shift_out(uint8_t byte, int64_t not_before) {
    character next{.start = std::max(not_before, idle_at), .format = actual, .data = byte};
    next.end = next.start + one_character;
    fifo_empty_at = next.start;
    idle_at = next.end;
    loaded.push_back(next);
}

void transmitter::reload(int64_t now, std::vector<character> not_started) {
    if (not_started.empty())
        return;
    idle_at = std::max(now, not_started.front().start);
    for (character &passing : not_started)
        shift_out(passing.data, idle_at);
}

int64_t transmitter::drain_time() const {
    return queue.size() > load_bytes || urgent ? NEVER : idle_at;
}

int64_t transmitter::next_event_time() const {
    if (!loaded.empty())
        return advanced_to;
    if (load_bytes > 0)
        return fifo_empty_at;
    const int64_t load = load_time();
    return load == NEVER && idle_at > advanced_to ? idle_at : load;
}

} // namespace simulator::line
