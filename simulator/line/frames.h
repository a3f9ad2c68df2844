// The sending half of a synchronous port: frames leave one after the other, each with an opening
// flag, a closing flag and a 16-bit check (HDLC). The bits that HDLC stuffs into the data take no
// time here.
#pragma once

#include "simulator/line/uart/wire.h"

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace simulator::line {

constexpr size_t FRAME_QUEUE_BYTES = 4095; // the driver's queue, and the longest frame
constexpr size_t FRAME_OVERHEAD_BYTES = 4; // two flags and the check
constexpr uint32_t FRAME_BPS = 614400;

struct line_frame {
    int64_t end = 0; // of the closing flag
    uint32_t bps = FRAME_BPS;
    std::vector<uint8_t> bytes;
};

class frame_sender {
public:
    void set_bps(uint32_t wanted) {
        bps = wanted;
    }
    size_t room() const;
    size_t queued() const; // bytes, including the frame that is leaving
    // Queues a frame, for which there must be room.
    void put(int64_t now, std::span<const uint8_t> bytes);
    // Drops the frames that have not begun.
    void flush();
    void hold(int64_t now, bool wanted);

    void advance(int64_t now);
    // The frames that have left since the last call.
    std::vector<line_frame> take_sent();
    // The time at which all frames have left. NEVER while frames wait for the one that is leaving.
    int64_t drain_time() const;
    int64_t next_event_time() const;

private:
    int64_t start_time() const;

    uint32_t bps = FRAME_BPS;
    std::deque<std::vector<uint8_t>> waiting;
    std::optional<line_frame> leaving;
    std::vector<line_frame> sent;
    int64_t free_at = 0;
    int64_t ready_since = 0;
    bool held = false;
};

} // namespace simulator::line
