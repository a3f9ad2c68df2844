// Reads the lines of the results list and of the status report by the rows that write them: the
// reverse of format_line.

#pragma once

#include <cstring>
#include <span>
#include <string_view>

#include "supervisor/lists/line_row.h"

// Reads a line, without its line breaks, into the words that its row prints; the other words become
// 0. Samples go into the ring so that samples_newest_first returns them in the line's order.
// Returns false if the line is none of the rows.
//
// An SPI device that is not the datakey gets unit 2: the list does not distinguish them. The line
// of a module on SPI ends at its device's name if that device could not be opened: its unit is 0
// then.
// `guess` is the letter that the line probably has; a wrong one only costs time.
bool read_results_line(std::string_view line, TestRecord &record, int32_t guess = 0);
bool read_report_line(std::string_view line, TestRecord &record);

// Where a line of the results list has its two counts and its error counters.
struct line_layout {
    record_letter letter = record_letter::RECEIVER;
    std::array<uint8_t, 2> counts = {}; // words of the record; the second one is what was verified
    std::array<uint8_t, 3> errors = {}; // likewise, in the order of the line
    size_t error_count = 0;             // 1 to 3; the line has a fixed 0 in place of the others
    std::array<std::string_view, 2> count_names = {}; // in the line: "wrote", "read"
    std::string_view between;                         // the counts: " read "
    bool has_samples = false;
};

// Returns the layout of a letter's line; of the receiver for a letter without a line.
const line_layout &layout_of(int32_t letter);

// The start of a record's line up to its first count, to recognise its next line.
struct line_start {
    std::array<char, 31> text = {};
    uint8_t size = 0; // 0 if it does not fit

    explicit line_start(const TestRecord &record);
    line_start() = default;
};

// Reads the next line of a record the quick way: it may differ from `before` in the two counts
// alone, and shows no error and no sample. Returns false for any other line: it has to be read as a
// whole.
bool read_clean_line(std::string_view line, const line_start &start, const line_layout &layout,
                     const TestRecord &before, TestRecord &record);

// A word of the record, 0..28.
inline uint32_t word_of(const TestRecord &record, uint8_t word) {
    uint32_t value = 0;
    memcpy(&value, reinterpret_cast<const char *>(&record) + word * sizeof value, sizeof value);
    return value;
}
