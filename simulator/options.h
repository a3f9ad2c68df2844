// hk_board's command line.
#pragma once

#include "simulator/devices/fio/field_io_options.h"
#include "simulator/devices/panel/key_script.h"
#include "simulator/faults/fault.h"
#include "simulator/time/event_loop.h"
#include "simulator/world/network.h"

#include <string>
#include <utility>
#include <vector>

namespace simulator {

struct board_options {
    std::vector<std::pair<std::string, std::string>> cables; // two port names each
    std::vector<std::string> loops;
    field_io_options field_io;
    std::vector<std::string> ports;                         // there, with nothing plugged in
    std::vector<std::pair<std::string, std::string>> feeds; // a port name and a file each
    std::vector<fault> faults;
    std::vector<key_step> keys; // of the front panel
    bool has_panel = false;     // either of --panel and --keys
    bool panel = false;         // the operator's terminal is the panel
    mac_address mac = {0x02, 0x00, 0x00, 0x00, 0x12, 0x34};
    int64_t run_us = NEVER;   // after which the program gets SIGTERM
    std::string log_path;     // empty: none
    std::string forward_path; // of the log, a datagram socket; empty: none
    bool quiet = false;
    bool show_led = false;
    bool release = false;
    bool help = false;
    char *const *program = nullptr; // its name and arguments
};

// Reads the command line. False when it is not valid, after saying on standard error what would be.
bool parse_options(int argc, char *const *argv, board_options &options);

// Writes the help text to standard output.
void print_help();

} // namespace simulator
