#pragma once

// Starts the filesystem test in a directory, which it creates if needed. Claims one record; does
// nothing else if `no_fork` is not 0. Returns in the supervisor. If the files could not be created,
// it also returns in the test process, which continues as a second supervisor: the record then has
// PID_STOP and one error.
void filesystem_test(int no_fork, const char *directory);
