#pragma once

#include <sys/types.h>

#include "serial/patterns.h"

// Starts the crossover test between the ports x and y, texts of one character; equal texts make it
// a loopback test on one port. Claims one record a port, x first. With `no_fork` it stops there and
// returns it; otherwise it returns the test process's id, or -1 when fork failed.
pid_t crossover_test(int no_fork, const char *x, const char *y, PatternSource pattern);
