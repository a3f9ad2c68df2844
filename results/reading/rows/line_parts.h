// The parts of a line: numbers and the texts between them. Most of the time goes here.

#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

// Reads digits with a sign into a word. Returns the first character after it, null if there is none
// or if it is too large. std::from_chars takes twice as long.
inline const char *read_decimal(const char *at, const char *end, uint32_t &value) {
    constexpr ptrdiff_t DIGITS_MAX = 10;
    const auto is_digit_at = [](const char *place) { return *place >= '0' && *place <= '9'; };
    if (end - at > 1 && is_digit_at(at) && !is_digit_at(at + 1)) { // as most are
        value = static_cast<uint32_t>(*at - '0');
        return at + 1;
    }
    const bool is_negative = at < end && *at == '-';
    const char *first = at + (is_negative ? 1 : 0);
    int64_t number = 0;
    for (at = first; at < end && is_digit_at(at) && at - first <= DIGITS_MAX; ++at)
        number = number * 10 + (*at - '0');
    number = is_negative ? -number : number;
    value = static_cast<uint32_t>(number);
    const bool is_word = number >= INT32_MIN && number <= INT32_MAX;
    return at != first && at - first <= DIGITS_MAX && is_word ? at : nullptr;
}

// Texts have one byte, a comma, or some ten: one comparison, or two of eight that overlap, are
// faster than memcmp(3).
inline bool is_equal(const char *one, const char *other, size_t size) {
    uint64_t words[4] = {};
    if (size == 1)
        return *one == *other;
    if (size < sizeof words[0] || size > 2 * sizeof words[0])
        return memcmp(one, other, size) == 0;
    memcpy(&words[0], one, sizeof words[0]);
    memcpy(&words[1], other, sizeof words[0]);
    memcpy(&words[2], one + size - sizeof words[0], sizeof words[0]);
    memcpy(&words[3], other + size - sizeof words[0], sizeof words[0]);
    return words[0] == words[1] && words[2] == words[3];
}

// Takes the text from the front of what is left.
inline bool takes_text(const char *&at, const char *end, std::string_view text) {
    if (static_cast<size_t>(end - at) < text.size() || !is_equal(at, text.data(), text.size()))
        return false;
    at += text.size();
    return true;
}
