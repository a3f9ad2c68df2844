// The simulated board: its devices as the command line asks for them.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/options.h"
#include "simulator/world/log/log_forward.h"
#include "simulator/world/terminal.h"

#include <memory>
#include <string>
#include <vector>

namespace simulator {

struct board {
    std::vector<std::unique_ptr<device>> devices;
    log_forward forward;        // not connected without --forward
    operator_terminal terminal; // not open without --panel
};

// Builds the devices, plugs in the cables and deals out the faults. False after a message when the
// options contradict each other or a fault finds nothing to break.
bool build_board(const board_options &options, board &built);

// Paths on the machine, to be asked for outside the namespaces: where the root is not the topmost
// mount (chroot(2)), the kernel gives other ones inside.
struct machine_paths {
    std::string directory;   // where the program is to run
    std::string own_program; // hk_board itself
};

// The first process of the board's namespaces: sets everything up, runs the program and the devices
// until it has ended. Returns the exit status of the run.
int run_board(board &built, const board_options &options, const machine_paths &paths);

} // namespace simulator
