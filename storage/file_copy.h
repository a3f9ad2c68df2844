#pragma once

// True when the argument of -M names a source, a destination and a number, cut at colons, in at
// most 800 characters.
bool is_file_copy_argument(const char *argument);

// Starts the file copy test that the argument describes. Does nothing, and claims no record, when
// is_file_copy_argument says no.
void file_copy_option(int no_fork, const char *argument);

// Starts the file copy test between two files; `number` changes nothing. Claims one record; with
// `no_fork` it stops there. Returns in the supervisor, and also in the test process when the source
// could not be made: the record then holds PID_STOP and one error, and the caller goes on as a
// second supervisor.
void file_copy_test(int no_fork, const char *source, const char *destination, long number);
