#pragma once

#include <sys/types.h>

// Starts the test of the two field I/O modules on the sync port with this name ("5"). Claims two
// records, the first for the module at address 20, the second for the one at address 16. If
// `no_fork` is not 0, it only claims and returns `no_fork`. Otherwise it returns the test process's
// id, or -1 if fork failed.
pid_t fio_loop_test(int no_fork, const char *port);
