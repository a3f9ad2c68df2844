// The file of --log. It keeps every line: while the disk is full, lines wait in memory and are
// written when there is room again.
#pragma once

#include "simulator/base/unique_fd.h"

#include <string>
#include <string_view>

namespace simulator {

class log_file {
public:
    // Creates the file, or empties it. False after a message.
    bool open(const std::string &path);
    // Writes the line, its newline included, now or later. Does nothing when no file is open.
    // Reports once on standard error if the file cannot be written.
    void keep(std::string_view line);
    // Tries to write the waiting lines a last time and reports on standard error how many are lost.
    void finish();

private:
    void write_waiting();

    unique_fd file;
    std::string path;
    std::string waiting; // may begin within a line, if only a part of it had room
    size_t lost_lines = 0;
    bool complained = false;
};

} // namespace simulator
