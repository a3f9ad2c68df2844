// The simulated board: its devices as the command line asks for them, and one run of a program.
#pragma once

#include "simulator/command_line.h"
#include "simulator/devices/device_set.h"
#include "simulator/run_settings.h"
#include "simulator/world/foreground.h"

#include <string>

namespace simulator {

struct board {
    device_set devices;
    run_settings settings;
    unique_fd door;      // where it is entered; none: it has no name
    foreground terminal; // the operator's; the panel keeps it if there is one
};

// Adds the devices, plugs in the cables and deals out the faults. False after a message when the
// options contradict each other or a fault finds nothing to break.
bool build_board(const command_line &given, board &built);

// Paths on the machine, to be asked for outside the namespaces: where the root is not the topmost
// mount (chroot(2)), the kernel gives other ones inside.
struct machine_paths {
    std::string directory;   // where the program is to run
    std::string own_program; // hk_board itself
};

// The first process of the board's namespaces: sets everything up, runs the program and the devices
// until it has ended. `program` is its name and its arguments. Returns the exit status of the run.
int run_board(board &built, char *const *program, const machine_paths &paths);

} // namespace simulator
