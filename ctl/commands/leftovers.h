// The files and folders that -Y and -M leave when their tests are killed. The tests' own contents
// identify them; a file with other contents stays.

#pragma once

#include <string>
#include <vector>

#include "ctl/run/runs.h"

struct leftovers {
    std::vector<std::string> files;
    std::vector<std::string> folders; // removed if they are empty after that
};

// What the tests of a run have made, found by their working directories and open files, without
// what the tests of the other runs work with. `runs` may contain the run itself.
leftovers leftovers_of(const stress_run &run, const std::vector<stress_run> &runs);

// Leftovers in a folder and its subfolders that belong to none of the runs that go on.
leftovers leftovers_in(const std::string &folder, const std::vector<stress_run> &runs);

// Prints and removes each; with `dry_run` only prints it. False if one could not be removed.
bool remove_leftovers(const leftovers &found, bool dry_run);
