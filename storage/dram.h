#pragma once

#include <sys/types.h>

// Starts the DRAM test, which claims one record. With `no_fork` it stops there and returns it;
// otherwise it returns the test process's id, or -1 when fork failed.
pid_t dram_test(int no_fork);
