// The end of a cable in a device that is no port of the board: a field module, a panel, a feed. It
// has a UART (or a frame controller) at a speed of its own and nothing else: no line discipline, no
// flow control. RTS and DTR are on.
#pragma once

#include "simulator/line/cable.h"

#include <functional>
#include <span>

namespace simulator::line {

class device_end final : public line_end {
public:
    explicit device_end(bool carries_frames);

    // Called with each byte at the end of its last stop bit, or with each frame at the end of its
    // closing flag. The device may send from within.
    std::function<void(int64_t now, std::span<const uint8_t> bytes)> on_receive;

    // 9600 bit/s, 8 data bits until then; frames at 614400.
    void set_format(int64_t now, const line_format &wanted);

    // Sends bytes, or one frame. What the queue has no room for is lost.
    void send(int64_t now, std::span<const uint8_t> bytes);

    // The modem lines that arrive, as TIOCMGET has them.
    uint32_t modem_lines() const {
        return lines;
    }

    void settle(int64_t now, uint32_t arriving_lines) override;
    void take_frame(int64_t now, const line_frame &frame) override;

private:
    line_format format;
    uint32_t lines = 0;
};

} // namespace simulator::line
