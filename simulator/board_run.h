// One run of a program on the board.
#pragma once

#include "simulator/board.h"

#include <string>

namespace simulator {

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
