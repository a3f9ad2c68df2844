// Where a line of the results list or of the status report has its counts and its error counters.

#pragma once

#include <array>
#include <cstring>
#include <string_view>

#include "supervisor/lists/line_row.h"

struct line_layout {
    record_letter letter = record_letter::RECEIVER;
    std::array<uint8_t, 2> counts = {}; // words of the record; the second one is what was verified
    std::array<uint8_t, 3> errors = {}; // likewise, in the order of the line
    size_t error_count = 0;             // 1 to 3; the line has a fixed 0 in place of the others
    std::array<std::string_view, 2> count_names = {}; // in the line: "wrote", "read"
    std::string_view between;                         // the counts: " read "
    size_t samples = 0;
    std::array<bool, 3> is_shown = {true, true, true}; // the error counter, by the line
};

// Returns the layout of a letter's line; of the receiver for a letter without a line.
const line_layout &layout_of(int32_t letter);

// Returns the layout of a letter's line in the report; a letter without one has that of the list.
// Error counters keep the order of the list, also those that the report does not show. A line with
// one count has it twice.
const line_layout &report_layout_of(int32_t letter);

// A word of the record, 0..28.
inline uint32_t word_of(const TestRecord &record, uint8_t word) {
    uint32_t value = 0;
    memcpy(&value, reinterpret_cast<const char *>(&record) + word * sizeof value, sizeof value);
    return value;
}
