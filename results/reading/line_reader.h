// Splits the bytes of a source into lines without copying them.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "results/reading/byte_source.h"

constexpr size_t LINE_MAX_BYTES = size_t{64} * 1024; // of longer lines only the start is kept

class line_reader {
public:
    explicit line_reader(byte_source &input);

    // Returns the next line without its line break, none at the end of the source. It is valid
    // until the next call.
    std::optional<std::string_view> next();
    // Returns true if the line returned last had its line break.
    bool is_whole() const {
        return has_break;
    }
    // Returns so many bytes, fewer at the end. Skips more than LINE_MAX_BYTES and returns none.
    std::string_view next_bytes(uint64_t count);
    // Goes on after the end: the source has grown.
    void resume() {
        is_at_end = false;
    }
    // Keeps the start of a line for the next call of `next`: the line returned last had no break.
    void keep_last();

private:
    bool fill();
    void skip(uint64_t count);

    byte_source &source;
    std::vector<char> buffer;
    size_t at = 0;
    size_t end = 0;
    size_t last = 0; // where the last line without its break began
    bool has_break = true;
    bool is_at_end = false;
    bool is_filled = false; // by the last read
};
