// hk_board's command line.
#pragma once

#include "simulator/options/option_table.h"

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
    std::string enter;              // name of the running board to use; empty: start a board
    std::string replay;             // the log of a run that is repeated; empty: none
    char *const *program = nullptr; // its name and arguments; default: the operator's shell
};

// Reads the command line, but does not check the arguments of its options yet. If it is not valid,
// writes what is valid to standard error and returns false.
bool read_command_line(int argc, char *const *argv, command_line &given);

// Writes the help text to standard output.
void print_help();

} // namespace simulator
