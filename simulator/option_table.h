// Everything that hk_board can be asked for, one row an option. An option of a device names the
// function that adds the device; nothing else of the board knows it.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/run_settings.h"

#include <span>
#include <variant>

namespace simulator {

// Carries out the option for its argument (null for an option without). False after a message.
using device_option = bool (*)(device_set &devices, const char *text);
using run_option = bool (*)(run_settings &settings, const char *text);

// These are for the command line itself: --help, --board and --enter.
struct help_option {};
struct board_file_option {};
struct enter_option {};

struct option_row {
    const char *name;
    const char *argument; // null: none
    const char *example;
    const char *meaning;
    std::variant<device_option, run_option, help_option, board_file_option, enter_option> carry_out;
};

// Whether the option describes a board or its run, and so may be a key of a board file.
inline bool is_for_board_files(const option_row &row) {
    return std::holds_alternative<device_option>(row.carry_out) ||
           std::holds_alternative<run_option>(row.carry_out);
}

// In the order in which they are shown and carried out.
std::span<const option_row> option_table();

// Adds what every board has, whatever is asked for.
void add_devices_of_every_board(device_set &devices);

} // namespace simulator
