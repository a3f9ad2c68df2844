#pragma once

#include "supervisor/status_table.h"

constexpr int REPORT_LINE_MAX = 500; // bytes, the closing zero included

// Formats a record's line, which begins with a line break. Returns its length, 0 for a letter
// without a line.
int format_report_line(const TestRecord &record, char (&line)[REPORT_LINE_MAX]);

// Writes one line for each of the records 1..process_count to standard output, in one write, and
// stores counters and time for the next report.
void status_report();
