// The files of the filesystem test, all in the current directory: "file-" and a number in
// hexadecimal, 512 bytes each. Every 16-bit word of a file is its number, in host byte order.

#pragma once

#include "runtime/record.h"

// Creates the files 0 to 15. Keeps an existing file of the right size, with any contents, and
// leaves its descriptor open. Counts each written file in `write_count`. Returns false if a file
// cannot be opened.
bool lay_test_files(TestRecord &record);

// Reads the directory once and compares every file named like a test file, from this test or not,
// with the number in its name. Counts each compared file in `read_count` and each bad, unreadable
// or wrong-sized one in `errors`. Counts nothing if the directory cannot be opened.
void verify_test_files(TestRecord &record);

// Removes the files 0 to 15 if they exist.
void remove_test_files();
