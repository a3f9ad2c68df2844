// Runs a program on a board that is already running (--enter).
#pragma once

#include "simulator/board.h"

namespace simulator {

// Runs the program on the board of that name. Returns the exit status of hk_board.
int visit_board(const std::string &name, char *const *program, const machine_paths &paths);

} // namespace simulator
