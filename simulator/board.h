// The simulated board: the devices that the command line asks for, and one run of a program.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/options/command_line.h"
#include "simulator/options/run_settings.h"
#include "simulator/time/call_log.h"
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

// Paths on the machine. Read them before entering the namespaces: after a chroot(2) the kernel
// reports other paths inside.
struct machine_paths {
    std::string directory;   // where the program runs
    std::string own_program; // hk_board itself
};

// Runs in the first process of the board's namespaces: sets the board up and runs the program and
// the devices until the program has ended. `program` is its name and arguments. Returns the exit
// status of the run.
int run_board(board &built, char *const *program, const machine_paths &paths);

} // namespace simulator
