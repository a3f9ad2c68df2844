// What the line discipline does to output on its way to the driver's queue, and the echo of input.
// As do_output_char of the kernel's drivers/tty/n_tty.c: OPOST with ONLCR, OCRNL, ONOCR, ONLRET,
// OLCUC and XTABS. The delays do nothing, as there.
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

    // Queues as many bytes as there is room for and returns how many. A byte that becomes two needs
    // room for both.
    size_t write(int64_t now, std::span<const uint8_t> bytes);

    // Echoes one character of input, a control character as ^X if ECHOCTL is set. Without room it
    // is lost.
    void echo(int64_t now, uint8_t byte);
    // Echoes text unchanged except for OPOST.
    void echo_text(int64_t now, std::string_view text);

    // Number of columns of the character's echo.
    int echo_columns(uint8_t byte) const;

private:
    bool put_text(int64_t now, std::string_view text);
    bool put_processed(int64_t now, uint8_t byte);
    bool put_line_feed(int64_t now);
    bool put_carriage_return(int64_t now);
    bool put_tab(int64_t now);
    bool put_visible(int64_t now, uint8_t byte);
    bool shows_control(uint8_t byte) const;

    transmitter &out;
    tcflag_t flags = 0; // of c_oflag
    tcflag_t local_flags = 0;
    unsigned column = 0;
};

} // namespace simulator::line
