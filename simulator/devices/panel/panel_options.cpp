#include "simulator/devices/panel/panel_options.h"

#include "simulator/devices/panel/front_panel.h"
#include "simulator/devices/serial/port_options.h"

namespace simulator {

namespace {

constexpr const char *PANEL_PORT_NAME = "6";

// Returns the board's panel and plugs it in first if necessary. Null after a message if the port is
// taken.
front_panel *panel_of(device_set &devices, const char *option) {
    front_panel *panel = devices.find<front_panel>();
    if (panel != nullptr)
        return panel;
    serial_port &port = port_named(devices, PANEL_PORT_NAME);
    panel = &devices.add<front_panel>(port);
    return plug_device(devices, port, panel->end, panel->faults, option) ? panel : nullptr;
}

} // namespace

bool plug_terminal(device_set &devices, const char *) {
    front_panel *panel = panel_of(devices, "--panel");
    if (panel == nullptr || panel->has_keyboard())
        return panel != nullptr;
    if (!devices.terminal.open())
        return false;
    panel->plug_keyboard(devices.terminal.board_end());
    return true;
}

bool press_keys(device_set &devices, const char *text) {
    std::vector<key_step> steps;
    front_panel *panel = panel_of(devices, "--keys");
    if (panel == nullptr || !parse_keys(text, steps))
        return false;
    panel->add_keys(steps);
    return true;
}

} // namespace simulator
