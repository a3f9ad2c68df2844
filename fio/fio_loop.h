#pragma once

#include <sys/types.h>

// Starts the test of the two field I/O modules on the sync port with this name ("5"). Claims two
// records, the first for the module at address 20, the second for the one at address 16. With
// `no_fork` it stops there and returns it; otherwise it returns the test process's id, or -1 when
// fork failed.
pid_t fio_loop_test(int no_fork, const char *port);
