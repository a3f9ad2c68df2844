#include "simulator/base/text.h"

#include <algorithm>
#include <cstdlib>

namespace simulator {

namespace {

constexpr double MICROSECONDS = 1e6;

} // namespace

bool read_number(const std::string &text, number_range range, int &number) {
    char *end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < range.least || value > range.most)
        return false;
    number = static_cast<int>(value);
    return true;
}

bool read_seconds(const std::string &text, double most_seconds, int64_t &time_us) {
    char *end = nullptr;
    const double seconds = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= most_seconds))
        return false; // the comparison is false for "nan" as well
    time_us = static_cast<int64_t>(seconds * MICROSECONDS);
    return true;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts(1);
    for (const char letter : text)
        if (letter == separator)
            parts.emplace_back();
        else
            parts.back() += letter;
    return parts;
}

std::pair<std::string, std::string> split_once(std::string_view text, char separator) {
    const size_t at = std::min(text.find(separator), text.size());
    const size_t after = std::min(at + 1, text.size());
    return {std::string(text.substr(0, at)), std::string(text.substr(after))};
}

} // namespace simulator
