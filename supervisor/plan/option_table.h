#pragma once

// The letters of the command line, a colon behind each that takes an argument; see getopt(3).
constexpr char OPTION_STRING[] = "eihb:d:f:l:E:P:C:I:S:Y:M:FDLK";

// Prints the usage text to standard output.
void print_usage(const char *program);

// Reads the options from left to right. Each test option starts its test at once, under the
// settings that stand before it; unknown letters are ignored after getopt's own message.
void walk_options(int argc, char **argv);
