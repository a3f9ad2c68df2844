#pragma once

#include "ctl/run/runs.h"

// The run as one JSON object, see RFC 8259. Bytes that are no UTF-8 become U+FFFD.
void print_json(const stress_run &run);

// What a look at the run ends with.
int status_of(const stress_run &run);
