#pragma once

#include <sys/types.h>

// Starts the echo on a port; the name of the port is also its number. Claims a record with letter
// 'E'. No option starts it. If `no_fork` is not 0, it only claims and returns `no_fork`. Otherwise
// it returns the test process's id, or -1 if fork failed. `extra` is not used.
pid_t echo_test(int no_fork, const char *port, int extra);
