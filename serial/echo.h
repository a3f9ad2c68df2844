#pragma once

#include <sys/types.h>

// Starts the echo on a port, whose name is its number too. Claims a record with letter 'E'. No
// option starts it. With `no_fork` it stops there and returns it; otherwise it returns the test
// process's id, or -1 when fork failed. `extra` is not used.
pid_t echo_test(int no_fork, const char *port, int extra);
