// Reads texts that the operator gives.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {

struct number_range {
    int least;
    int most;
};

// Reads one decimal number in the range. False if the text is anything else; `number` is then
// unchanged.
bool read_number(const std::string &text, number_range range, int &number);

// Reads a number of seconds from 0 to `most_seconds`, fractions allowed. False if the text is
// anything else; `time_us` is then unchanged.
bool read_seconds(const std::string &text, double most_seconds, int64_t &time_us);

// The parts of a text between its separators; at least one, and parts may be empty.
std::vector<std::string> split(std::string_view text, char separator);

// The parts before and after the first separator. Without a separator, the first part is the whole
// text and the second is empty.
std::pair<std::string, std::string> split_once(std::string_view text, char separator);

} // namespace simulator
