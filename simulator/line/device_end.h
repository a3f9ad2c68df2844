// The end of a cable in a device that is not a port of the board: a field I/O module, a panel, a
// feed. It has only a UART (or a frame controller) with its own speed: no line discipline, no flow
// control. RTS and DTR are on.
#pragma once

#include "simulator/line/cable.h"

#include <functional>
#include <span>

namespace simulator::line {

class device_end final : public line_end {
public:
    explicit device_end(bool carries_frames);

    // Called with each byte at the end of its last stop bit, or with each frame at the end of its
    // closing flag. The device may call `send` in it.
    std::function<void(int64_t now, std::span<const uint8_t> bytes)> on_receive;

    // Sets speed and framing. The default is 9600 bit/s, 8 data bits; for frames 614400 bit/s.
    void set_format(int64_t now, const line_format &wanted);

    // Sends bytes, or one frame. Bytes for which the queue has no room are lost.
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
