#include "simulator/line/device_end.h"

#include <asm/termios.h>

namespace simulator::line {

device_end::device_end(bool carries_frames) : line_end(carries_frames) {
    raised = TIOCM_RTS | TIOCM_DTR;
    input.trigger = 1;
    input.listen(true);
    format.bps = carries_frames ? FRAME_BPS : format.bps;
    set_format(0, format);
}

void device_end::set_format(int64_t now, const line_format &wanted) {
    format = wanted;
    input.configure(format, 0, true);
    change_format(now, format);
}

void device_end::send(int64_t now, std::span<const uint8_t> bytes) {
    if (!is_synchronous)
        (void)output.put(now, bytes); // a device does not wait for room
    else if (!bytes.empty() && bytes.size() <= frames.room())
        frames.put(now, bytes);
    advance_cable(now);
}

void device_end::settle(int64_t now, uint32_t arriving_lines) {
    lines = arriving_lines;
    for (const received_byte &each : input.delivered)
        if (on_receive)
            on_receive(now, {&each.data, 1});
    input.delivered.clear();
}

void device_end::take_frame(int64_t now, const line_frame &frame) {
    line_format sender = format;
    sender.bps = frame.bps;
    if (on_receive && agree(sender, format))
        on_receive(now, frame.bytes);
}

} // namespace simulator::line
