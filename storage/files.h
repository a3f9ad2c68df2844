#pragma once

// Starts the filesystem test in a directory, which it makes if needed. Claims one record; with
// `no_fork` it stops there. Returns in the supervisor, and also in the test process when the files
// could not be created: the record then holds PID_STOP and one error, and the caller goes on as a
// second supervisor.
void filesystem_test(int no_fork, const char *directory);
