#pragma once

#include "ctl/run/runs.h"

// Prints the run as one JSON object, see RFC 8259. Bytes that are not UTF-8 become U+FFFD.
void print_json(const stress_run &run);

// The exit status of a command that shows the run.
int status_of(const stress_run &run);
