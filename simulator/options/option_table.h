// All options of hk_board, one row each. The row of a device's option names the function that adds
// the device; nothing else in the board refers to that function.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/options/run_settings.h"

#include <span>
#include <variant>

namespace simulator {

// Carries out the option. `text` is its argument, null for an option without one. False after a
// message.
using device_option = bool (*)(device_set &devices, const char *text);
using run_option = bool (*)(run_settings &settings, const char *text);

// These are for the command line itself: --help, --board, --enter and --replay.
struct help_option {};
struct board_file_option {};
struct enter_option {};
struct replay_option {};

struct option_row {
    const char *name;
    const char *argument; // null: none
    const char *example;
    const char *meaning;
    std::variant<device_option, run_option, help_option, board_file_option, enter_option,
                 replay_option>
        carry_out;
};

// True if the option may be a key of a board file: it describes a board or its run.
inline bool is_for_board_files(const option_row &row) {
    return std::holds_alternative<device_option>(row.carry_out) ||
           std::holds_alternative<run_option>(row.carry_out);
}

// In the order in which --help shows them and the board carries them out.
std::span<const option_row> option_table();

// Adds the devices that every board has.
void add_devices_of_every_board(device_set &devices);

} // namespace simulator
