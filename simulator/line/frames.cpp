#include "simulator/line/frames.h"

#include <algorithm>
#include <utility>

namespace simulator::line {

size_t frame_sender::queued() const {
    size_t bytes = leaving ? leaving->bytes.size() : 0;
    for (const auto &frame : waiting)
        bytes += frame.size();
    return bytes;
}

size_t frame_sender::room() const {
    return FRAME_QUEUE_BYTES - std::min(FRAME_QUEUE_BYTES, queued());
}

void frame_sender::put(int64_t now, std::span<const uint8_t> bytes) {
    if (waiting.empty())
        ready_since = now;
    waiting.emplace_back(bytes.begin(), bytes.end());
}

void frame_sender::flush() {
    waiting.clear();
}

void frame_sender::hold(int64_t now, bool wanted) {
    if (held && !wanted)
        ready_since = now;
    held = wanted;
}

int64_t frame_sender::start_time() const {
    return waiting.empty() || held ? NEVER : std::max(free_at, ready_since);
}

void frame_sender::advance(int64_t now) {
    for (;;) {
        if (leaving && leaving->end <= now) {
            free_at = leaving->end;
            sent.push_back(*std::exchange(leaving, std::nullopt));
        }
        if (leaving || start_time() > now)
            return;
        const auto bits = static_cast<int64_t>(8 * (waiting.front().size() + FRAME_OVERHEAD_BYTES));
        leaving = line_frame{start_time() + half_bits_ns({.bps = bps}, 2 * bits), bps,
                             std::move(waiting.front())};
        waiting.pop_front();
    }
}

std::vector<line_frame> frame_sender::take_sent() {
    return std::exchange(sent, {});
}

int64_t frame_sender::drain_time() const {
    if (!waiting.empty())
        return NEVER;
    return leaving ? leaving->end : free_at;
}

int64_t frame_sender::next_event_time() const {
    return leaving ? leaving->end : start_time();
}

} // namespace simulator::line
