// The files of the filesystem test, all in the current directory: "file-" and a number in
// hexadecimal, 512 bytes each, every 16-bit word of it the number, in host byte order.

#pragma once

#include "runtime/record.h"

// Lays the files 0 to 15. One that is there with the right size is kept, whatever it holds, and
// its descriptor stays open. Counts each file written into `write_count`. Returns false when one
// cannot be opened.
bool lay_test_files(TestRecord &record);

// Reads the directory once and compares every file named like a test file, created by us or not,
// with the number in its name. Counts each file compared into `read_count` and each that is bad,
// unreadable or of another size into `errors`. A directory that cannot be opened counts nothing.
void verify_test_files(TestRecord &record);

// Removes the files 0 to 15, those that are there.
void remove_test_files();
