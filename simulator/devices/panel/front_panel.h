// The front panel: a keyboard and a display on port 6, a terminal at 38400 bit/s. The log shows the
// display's text line by line under the ident "panel". Keys come from a script (--keys), from the
// operator's keyboard (--panel), or both; with --panel the operator's terminal is also the display.
//
// A script begins with the first text on the display: before that, the program may still be setting
// up its port and would lose keys. The panel sends a group of keys only after the program has read
// the previous one, so a busy machine does not merge two keys.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/panel/display_lines.h"
#include "simulator/devices/panel/key_script.h"
#include "simulator/devices/serial/serial_port.h"
#include "simulator/line/device_end.h"

#include <deque>

namespace simulator {

struct front_panel final : device {
    explicit front_panel(serial_port &panel_port);

    line::device_end end{false};
    direction_faults faults; // of what reaches the port; only the port adds to them

    // Appends keys to the script.
    void add_keys(const std::vector<key_step> &keys);
    // `node` is a socket that delivers the operator's keys, one message for each stroke.
    void plug_keyboard(int node) {
        keyboard = node;
    }
    bool has_keyboard() const {
        return keyboard >= 0;
    }

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    void press(std::span<const uint8_t> bytes);
    void take_display(std::span<const uint8_t> bytes);
    void show_line();

    serial_port &port;
    std::deque<key_step> script;
    int keyboard = -1;
    bool script_begun = false;
    int64_t next_step_us = NEVER;
    display_lines display;
};

} // namespace simulator
