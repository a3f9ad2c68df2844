// hk_board's command line.
#pragma once

#include "simulator/option_table.h"

#include <vector>

namespace simulator {

struct given_option {
    const option_row *row;
    const char *text; // its argument; null: none
};

struct command_line {
    std::vector<given_option> options;
    bool help = false;
    char *const *program = nullptr; // its name and arguments
};

// Reads the command line; the arguments of its options are not looked at yet. False when it is not
// valid, after saying on standard error what would be.
bool read_command_line(int argc, char *const *argv, command_line &given);

// Writes the help text to standard output.
void print_help();

} // namespace simulator
