// Reading the operator's texts.
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

// Reads a text that is one decimal number in the range. False when it is not; `number` is then
// unchanged.
bool read_number(const std::string &text, number_range range, int &number);

// Reads a text that is a number of seconds, fractions allowed, from 0 to `most_seconds`. False when
// it is not; `time_us` is then unchanged.
bool read_seconds(const std::string &text, double most_seconds, int64_t &time_us);

// The parts of a text between its separators; at least one, and parts may be empty.
std::vector<std::string> split(std::string_view text, char separator);

// The parts before and after the first separator. Without one, all is before it and the part after
// it is empty.
std::pair<std::string, std::string> split_once(std::string_view text, char separator);

} // namespace simulator
