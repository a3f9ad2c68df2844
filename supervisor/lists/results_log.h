#pragma once

#include "supervisor/status_table.h"

constexpr int RESULTS_LINE_MAX = 400; // bytes, the closing zero included

// Formats a record's line for the results list. Returns its length, 0 for a letter without a line.
int format_results_line(const TestRecord &record, char (&line)[RESULTS_LINE_MAX]);

// Sends every claimed record to the system log as one list: "<OL>", a line each, "</OL><P>".
//
// Called from the run loop and from the signal handler. The C library's log lock is not re-entrant,
// so one list is never begun inside another: SIGALRM and SIGUSR1 wait in the kernel until the list
// is out, and a call made from a stop signal that came meanwhile is counted; the list that was
// interrupted is finished and one for each such call follows it.
void results_log();
