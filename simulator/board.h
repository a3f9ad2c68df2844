// The simulated board: the devices and the settings that the command line asks for.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/options/command_line.h"
#include "simulator/options/run_settings.h"
#include "simulator/own_time/call_log.h"
#include "simulator/world/operator/foreground.h"

#include <string>

namespace simulator {

struct board {
    device_set devices;
    run_settings settings;
    unique_fd entrance_listener; // socket for --enter; none: the board has no name
    std::string command;         // with the board's own time: what repeats the run
    call_log calls;              // of --calls
    foreground terminal;         // the operator's; the panel keeps it if there is one
};

// Adds the devices, plugs in the cables and assigns the faults. False after a message if the
// options contradict each other or a fault has no target.
bool build_board(const command_line &given, board &built);

} // namespace simulator
