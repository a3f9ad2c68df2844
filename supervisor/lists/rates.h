// What the status report says of the time since the report before it.

#pragma once

#include <cstdint>
#include <sys/time.h>

#include "runtime/record.h"

// The time that the rates of a report cover: from the end of the previous report, which the run
// loop sets when it starts, to the begin of this one.
extern timeval last_report_time;
extern timeval report_start_time;

// Bits per second of an asynchronous line, ten bits a counted character; 0 without a millisecond.
int64_t bit_rate(const TestRecord &record);

// Tenths of a count per second; 0 within the first second, where there is no whole one to divide
// by.
int32_t read_rate(const TestRecord &record);

// Whole seconds since the previous report.
uint32_t elapsed_s();
