#pragma once

constexpr int ARGUMENTS_MAX = 49; // the program's name and 48 arguments; later ones are not read

// Prints the usage text to standard output.
void print_usage(const char *program);

// Reads the options from left to right. Each test option starts its test immediately, under the
// settings before it. An unknown letter is ignored after getopt's own message. A test that does not
// fit into the status table is dropped with a message.
void walk_options(int argc, char **argv);

struct option_row;

// Applies one option as the walk does. With `no_fork` not 0 its test claims its records, but no
// process starts and nothing pauses: for a reader of a command line that wants to know its records.
void apply_option(const option_row &row, int no_fork, const char *argument);
