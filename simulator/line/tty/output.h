// What the line discipline does to output on its way to the driver's queue: OPOST with ONLCR and
// OCRNL, and the echo of input. The other c_oflag bits (delays, tabs, columns) do nothing here.
#pragma once

#include "simulator/line/tty/settings.h"
#include "simulator/line/uart/transmitter.h"

#include <string_view>

namespace simulator::line {

class output_processing {
public:
    explicit output_processing(transmitter &queue) : out(queue) {}

    void set_settings(const tty_settings &wanted) {
        flags = wanted.c_oflag;
        local_flags = wanted.c_lflag;
    }

    // Queues what there is room for. Returns how many of the bytes were taken; a byte that becomes
    // two is taken when there is room for both.
    size_t write(int64_t now, std::span<const uint8_t> bytes);

    // Echoes one character of input, a control character as ^X if ECHOCTL is set. What there is no
    // room for is lost.
    void echo(int64_t now, uint8_t byte);
    // Echoes as it is, but for OPOST.
    void echo_text(int64_t now, std::string_view text);

    // How many columns the echo of the character takes.
    int echo_columns(uint8_t byte) const;

private:
    bool put_processed(int64_t now, uint8_t byte);
    bool shows_control(uint8_t byte) const;

    transmitter &out;
    tcflag_t flags = 0;
    tcflag_t local_flags = 0;
};

} // namespace simulator::line
