// The ports of the board and what its options plug into them.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/devices/serial/serial_port.h"

namespace simulator {

// The port of that name ("2", "5s"). Adds it if the board lacks it.
serial_port &port_named(device_set &devices, const std::string &name);

// Plugs a device into a port: `faults` strike what it sends. False after a message if something is
// plugged in already; `option` is the operator's option for that message ("--fio 20=221").
bool plug_device(device_set &devices, serial_port &port, line::line_end &end,
                 direction_faults &faults, const std::string &option);

// Each carries out one option for its argument. False after a message that says what is valid.
bool plug_cable(device_set &devices, const char *text); // --cable
bool plug_loop(device_set &devices, const char *text);  // --loop
bool add_port(device_set &devices, const char *text);   // --port
bool plug_feed(device_set &devices, const char *text);  // --feed
bool serve_emulated(device_set &devices, const char *); // --emulated, after all that add ports

} // namespace simulator
