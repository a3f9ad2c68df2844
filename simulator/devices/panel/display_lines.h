// Turns what a program sends to a terminal into lines that can stand in a log. Control sequences
// are shown between angle brackets: <clear> for ESC [ 2 J, <8;1f> for ESC [ 8 ; 1 f. Bytes that
// have no letter are shown as \xHH.
#pragma once

#include <cstdint>
#include <string>

namespace simulator {

struct display_lines {
    // Takes one byte. True when it ended a line; `line` has it then, until `start_line`.
    bool take(uint8_t byte);
    void start_line();

    std::string line;

private:
    void show_sequence();

    std::string sequence; // begun, not yet whole; empty: none
};

} // namespace simulator
