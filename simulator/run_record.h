// What makes a run in the board's own time repeatable: its log begins with the command, and ends
// with a hash of all lines before.
#pragma once

#include "simulator/options/command_line.h"
#include "simulator/options/run_settings.h"

#include <string>

namespace simulator {

// The options and the program as words for a shell, without what only says where the log goes.
std::string command_words(const command_line &given, const run_settings &settings);

// Notes the command at the start of the log, and the hash at its end.
void note_command(const std::string &words);
void note_hash();

// Runs the command of a log again and compares the two logs while it runs. Returns 0 if they are
// the same, else 1 after a message with the first difference, STATUS_USAGE if the file has no
// command, or the status of a run that could not be started.
int replay_log(const std::string &path, const std::string &own_program);

} // namespace simulator
