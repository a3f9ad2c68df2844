// Reads a board description from a file, with toml++. Each key is the name of an option; its value
// is that option's argument or a list of arguments. See toml.io.
//
//   cable = "2-8"
//   loop = ["5s", 3]
//   quiet = true
#pragma once

#include "simulator/options/command_line.h"

namespace simulator {

// Appends the options in the file. False after a message "FILE:LINE: what is wrong and what is
// valid".
bool read_board_file(const char *path, std::vector<given_option> &options);

} // namespace simulator
