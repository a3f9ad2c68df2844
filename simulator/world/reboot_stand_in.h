// The harmless stand-in for the commands that restart or halt a machine: inside the board, their
// names run hk_board itself.
#pragma once

#include <string_view>

namespace simulator {

constexpr const char *RESTART_COMMANDS[] = {"reboot",   "halt",      "poweroff",
                                            "shutdown", "systemctl", "telinit"};

bool is_restart_command(std::string_view program_name);

// Reports "NAME requested" in the system log under the ident "board". Returns the exit status, 0.
int report_restart(std::string_view program_name);

// The last part of a path.
std::string_view file_name(std::string_view path);

} // namespace simulator
