// Starts the tests of memory and files.

#pragma once

#include <sys/types.h>

// The DRAM test. Claims one record. If `no_fork` is not 0, it only claims and returns `no_fork`.
// Otherwise it returns the test process's id, or -1 if fork failed.
pid_t dram_test(int no_fork);

// The filesystem test in a directory, which it creates if needed. Claims one record; does nothing
// else if `no_fork` is not 0. Returns in the supervisor. If the files could not be created, it also
// returns in the test process, which continues as a second supervisor: the record then has PID_STOP
// and one error.
void filesystem_test(int no_fork, const char *directory);

// Returns true if the argument of -M is a source, a destination and a number separated by colons,
// at most 800 characters.
bool is_file_copy_argument(const char *argument);

// Starts the file copy test of this argument. Does nothing and claims no record if
// is_file_copy_argument returns false.
void file_copy_option(int no_fork, const char *argument);

// Starts the file copy test between two files; `number` has no effect. Claims one record; does
// nothing else if `no_fork` is not 0. Returns in the supervisor. If the source could not be
// created, it also returns in the test process, which continues as a second supervisor: the record
// then has PID_STOP and one error.
void file_copy_test(int no_fork, const char *source, const char *destination, long number);
