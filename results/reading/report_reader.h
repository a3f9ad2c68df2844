// Finds status reports in a file: what hk_stress prints at its end. Their lines have no time, no
// host and no ident.

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "runtime/record.h"

struct report_line {
    TestRecord record;
    int64_t bit_rate = 0; // of a receiver: not 0 if blocks were not good
};

struct status_report_lines {
    std::vector<report_line> lines;
    bool is_cut = false; // a line cannot be read, or has no line break
};

class report_reader {
public:
    // Takes a line of any kind. An empty line separates reports.
    void take(std::string_view line, bool is_whole) {
        const bool can_be_of_report =
            line.empty() || line[0] == 's' || line[0] == ' ' || line[0] == '\r' || !is_whole;
        if (can_be_of_report)
            take_candidate(line, is_whole);
    }

    std::vector<status_report_lines> reports;
    uint64_t unreadable_lines = 0; // begin like a line of a report and are none

private:
    void take_candidate(std::string_view line, bool is_whole);

    bool is_in_report = false;
};
