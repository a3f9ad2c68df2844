// Turns what a program sends to a terminal into lines for a log. Control sequences appear in angle
// brackets: <clear> for ESC [ 2 J, <8;1f> for ESC [ 8 ; 1 f. Bytes that are not printable appear as
// \xHH.
#pragma once

#include <cstdint>
#include <string>

namespace simulator {

struct display_lines {
    // Takes one byte. True if it ends a line; `line` then has that line until `start_line`.
    bool take(uint8_t byte);
    void start_line();

    std::string line;

private:
    void show_sequence();

    std::string sequence; // begun and not complete; empty: none
};

} // namespace simulator
