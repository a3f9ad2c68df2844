// A description of a board in a file, read with toml++: each key is the name of an option, and its
// value that option's argument, or a list of them; see toml.io.
//
//   cable = "2-8"
//   loop = ["5s", 3]
//   quiet = true
#pragma once

#include "simulator/command_line.h"

namespace simulator {

// Appends what the file asks for. False after messages "FILE:LINE: what is wrong and what is
// valid".
bool read_board_file(const char *path, std::vector<given_option> &options);

} // namespace simulator
