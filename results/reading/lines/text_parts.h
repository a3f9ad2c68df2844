// Takes the parts of a line from its start.

#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

inline bool is_digit(char letter) {
    return letter >= '0' && letter <= '9';
}

// Takes a number of exactly so many digits from the start.
inline bool take_digits(std::string_view &rest, size_t digits, int32_t &number) {
    if (rest.size() < digits)
        return false;
    number = 0;
    for (size_t i = 0; i < digits; ++i) {
        if (!is_digit(rest[i]))
            return false;
        number = number * 10 + (rest[i] - '0');
    }
    rest.remove_prefix(digits);
    return true;
}

inline bool take(std::string_view &rest, char letter) {
    if (!rest.starts_with(letter))
        return false;
    rest.remove_prefix(1);
    return true;
}

inline bool take_any(std::string_view &rest, std::string_view letters) {
    if (rest.empty() || letters.find(rest[0]) == std::string_view::npos)
        return false;
    rest.remove_prefix(1);
    return true;
}

// Takes the text up to the next blank, and the blank.
inline std::string_view take_word(std::string_view &rest) {
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(word.size() + 1, rest.size()));
    return word;
}

inline std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' '))
        text.remove_prefix(1);
    while (text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}
