// Rates of the status report, over the time since the previous report.

#pragma once

#include <cstdint>
#include <sys/time.h>

#include "runtime/record.h"

// The rates of a report cover the time from the end of the previous report (at first: the start of
// the run loop) to the start of this one.
extern timeval last_report_time;
extern timeval report_start_time;

// Returns bits per second, at ten bits for each count; 0 if less than a millisecond has passed.
int64_t bit_rate(const TestRecord &record);

// Returns tenths of a count per second; 0 before the first whole second.
int32_t read_rate(const TestRecord &record);

// Returns the whole seconds since the previous report.
uint32_t elapsed_s();
