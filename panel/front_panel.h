// The front panel's keyboard and display, a terminal on port 6.

#pragma once

#include <sys/types.h>

// Claims a record and starts the test. The display shows the name of every pressed key; after about
// two seconds without a key, it shows a line of one letter of the alphabet. ESC four times in a row
// restarts the board's software and reboots the board.
//
// If `no_fork` is not 0, it only claims and returns `no_fork`. Otherwise it returns the test
// process's id, or -1 if fork failed. The test counts nothing: its record has `pid`, `unit` and
// `hold`.
pid_t front_panel_test(int no_fork);
