#pragma once

#include <sys/types.h>

// Starts the DRAM test, which claims one record. If `no_fork` is not 0, it only claims and returns
// `no_fork`. Otherwise it returns the test process's id, or -1 if fork failed.
pid_t dram_test(int no_fork);
