// Reads the lines of the results list and of the status report by the rows that write them: the
// reverse of format_line.

#pragma once

#include "results/reading/rows/line_layout.h"

// Reads a line, without its line breaks, into the words that its row prints; the other words become
// 0. Samples go into the ring so that samples_newest_first returns them in the line's order.
// Returns false if the line is none of the rows.
//
// An SPI device that is not the datakey gets unit 2: the list does not distinguish them. The line
// of a module on SPI ends at its device's name if that device could not be opened: its unit is 0
// then.
bool read_results_line(std::string_view line, TestRecord &record);

// A receiver's line has a bit rate. It is computed from the blocks that were read and not good.
bool read_report_line(std::string_view line, TestRecord &record, int64_t &bit_rate);

// The start of a record's line up to its first count, to recognise its next line.
struct line_start {
    std::array<char, 31> text = {};
    uint8_t size = 0; // 0 if it does not fit

    explicit line_start(const TestRecord &record);
    line_start() = default;
};

// Reads the next line of a record the quick way: it has the same start. Returns false for any other
// line: it has to be read as a whole.
bool read_next_line(std::string_view line, const line_start &start, const line_layout &layout,
                    const TestRecord &before, TestRecord &record);
