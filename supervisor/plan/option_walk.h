#pragma once

// Prints the usage text to standard output.
void print_usage(const char *program);

// Reads the options from left to right. Each test option starts its test immediately, under the
// settings before it. An unknown letter is ignored after getopt's own message. A test that does not
// fit into the status table is dropped with a message.
void walk_options(int argc, char **argv);
