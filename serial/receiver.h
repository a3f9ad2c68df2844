#pragma once

#include <sys/types.h>

#include "serial/patterns.h"

// Starts the serial receiver on a port, whose name is its number too. Claims a record with letter
// 'C'. With `no_fork` it stops there and returns it; otherwise it returns the test process's id, or
// -1 when fork failed.
pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern);
