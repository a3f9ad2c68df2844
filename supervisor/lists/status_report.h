#pragma once

#include <cstdint>
#include <sys/time.h>

#include "supervisor/status_table.h"

constexpr int REPORT_LINE_MAX = 500; // bytes, the closing zero included

// The time that the rates of a report cover: from the end of the previous report, which the run
// loop sets when it starts, to the begin of this one.
extern timeval last_report_time;
extern timeval report_start_time;

// Formats a record's line, which begins with its own line break. Returns its length, 0 for a letter
// without a line.
int format_report_line(const TestRecord &record, char (&line)[REPORT_LINE_MAX]);

// Writes one line per counted process, records 1..process_count, to standard output in one write
// and remembers counters and time for the next report.
void status_report();
