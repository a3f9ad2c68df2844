// Starts the tests of serial ports. The name of a port, a text of one character, is also its
// number. If `no_fork` is not 0, a routine only claims its records and returns `no_fork`. Otherwise
// it returns the test process's id, or -1 if fork failed.

#pragma once

#include <sys/types.h>

#include "serial/patterns.h"

// The receiver. Claims a record with letter 'C'.
pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern);

// The producer. Claims a record with letter 'P'.
pid_t producer_test(int no_fork, const char *port, PatternSource pattern);

// The crossover between the ports x and y. If they are equal, it is a loopback test on one port.
// Claims one record for each port, x first.
pid_t crossover_test(int no_fork, const char *x, const char *y, PatternSource pattern);

// The echo. Claims a record with letter 'E'. No option starts it. `extra` is not used.
pid_t echo_test(int no_fork, const char *port, int extra);
