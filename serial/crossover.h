#pragma once

#include <sys/types.h>

#include "serial/patterns.h"

// Starts the crossover test between the ports x and y, texts of one character. If they are equal,
// it is a loopback test on one port. Claims one record for each port, x first. If `no_fork` is not
// 0, it only claims and returns `no_fork`. Otherwise it returns the test process's id, or -1 if
// fork failed.
pid_t crossover_test(int no_fork, const char *x, const char *y, PatternSource pattern);
