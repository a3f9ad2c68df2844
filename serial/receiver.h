#pragma once

#include <sys/types.h>

#include "serial/patterns.h"

// Starts the serial receiver on a port; the name of the port is also its number. Claims a record
// with letter 'C'. If `no_fork` is not 0, it only claims and returns `no_fork`. Otherwise it
// returns the test process's id, or -1 if fork failed.
pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern);
