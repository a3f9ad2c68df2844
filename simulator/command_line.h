// hk_board's command line.
#pragma once

#include "simulator/option_table.h"

#include <string>
#include <vector>

namespace simulator {

struct given_option {
    const option_row *row;
    std::string text;  // its argument; empty: none
    std::string place; // in a board file, FILE:LINE; empty: the command line
};

struct command_line {
    std::vector<given_option> options;
    bool help = false;
    std::string enter;              // the board to run the program on; empty: one of its own
    char *const *program = nullptr; // its name and arguments; the operator's shell without
};

// Reads the command line; the arguments of its options are not looked at yet. False when it is not
// valid, after saying on standard error what would be.
bool read_command_line(int argc, char *const *argv, command_line &given);

// Writes the help text to standard output.
void print_help();

} // namespace simulator
