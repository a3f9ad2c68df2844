// The simulated board: its devices as the command line asks for them, and one run of a program.
#pragma once

#include "simulator/command_line.h"
#include "simulator/devices/device_set.h"
#include "simulator/run_settings.h"

#include <string>

namespace simulator {

struct board {
    device_set devices;
    run_settings settings;
};

// Adds the devices, plugs in the cables and deals out the faults. False after a message when the
// options contradict each other or a fault finds nothing to break.
bool build_board(const command_line &given, board &built);

// What is on the machine, to be asked for outside the namespaces: where the root is not the topmost
// mount (chroot(2)), the kernel gives other paths inside.
struct machine_paths {
    char *const *program;    // its name and arguments
    std::string directory;   // where it is to run
    std::string own_program; // hk_board itself
};

// The first process of the board's namespaces: sets everything up, runs the program and the devices
// until it has ended. Returns the exit status of the run.
int run_board(board &built, const machine_paths &paths);

} // namespace simulator
