#pragma once

#include "supervisor/status_table.h"

constexpr int RESULTS_LINE_MAX = 400; // bytes, the closing zero included

// Formats a record's line of the results list. Returns its length, 0 for a letter without a line.
int format_results_line(const TestRecord &record, char (&line)[RESULTS_LINE_MAX]);

// Sends every claimed record to the system log as one list: "<OL>", a line each, "</OL><P>".
//
// The run loop and the signal handler call this. The C library's log lock is not re-entrant, so
// lists do not nest: SIGALRM and SIGUSR1 wait in the kernel until the list is complete. A stop
// signal during a list only counts its call; one list for each such call follows the interrupted
// one.
void results_log();
