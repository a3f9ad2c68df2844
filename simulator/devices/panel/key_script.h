// A script of keys: --keys 's s \e[A @2.5 \x0d'
//
// A script is groups separated by blanks. Each group is sent at once, as a key of the panel sends
// its bytes. In a group \e is ESC, \r carriage return, \n line feed, \s a blank, \\ a backslash and
// \xHH any byte. A group @SECONDS sends nothing and waits that long.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace simulator {

struct key_step {
    std::string bytes;    // empty: only a pause
    int64_t pause_us = 0; // before the next step
};

constexpr int64_t KEY_PAUSE_US = 200'000; // after each group

// Reads a script. If it is not valid, writes why to standard error and returns false.
bool parse_keys(const char *text, std::vector<key_step> &steps);

} // namespace simulator
