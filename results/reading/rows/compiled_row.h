// A row of the tables of lines, prepared for reading: its items, and the text before each.

#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "supervisor/lists/line_row.h"

// The word of a number of the samples: with `hist_next` 0 the newest one is in the last slot.
constexpr uint8_t sample_word(size_t number) {
    constexpr size_t FIRST = offsetof(TestRecord, hist) / sizeof(int32_t);
    return static_cast<uint8_t>(FIRST + 2 * (RING_SLOTS - 1 - number / 2) + number % 2);
}

// One item of a line and the text before it.
struct line_item {
    std::string_view text;
    char letter = 0; // of the conversion
    field_form form = field_form::NUMBER;
    uint8_t word = NO_WORD;
    bool repeats = false; // an item before it has the same word
};

struct compiled_row {
    record_letter letter;
    std::vector<line_item> items;
    std::string_view tail; // the text after the last item
};

compiled_row compile(const line_row &row);

// Reads a whole line; see read_results_line. `bit_rate` is that of the line, 0 if it has none.
bool read_row(const compiled_row &row, std::string_view line, TestRecord &record,
              int64_t &bit_rate);
inline bool read_row(const compiled_row &row, std::string_view line, TestRecord &record) {
    int64_t bit_rate = 0;
    return read_row(row, line, record, bit_rate);
}
