// The front panel's keyboard and display, which hang on port 6 as a terminal.

#pragma once

#include <sys/types.h>

// Claims a record and starts the test: every key is named on the display; when none is pressed for
// about two seconds, a line of it fills with one letter of the alphabet. ESC four times in a row
// restarts the board's software and reboots the board.
//
// With `no_fork` not 0 it claims only and returns `no_fork`; otherwise it returns the child's id,
// -1 when there is none to be had. The record counts nothing: it carries `pid`, `unit` and `hold`.
pid_t front_panel_test(int no_fork);
