// The files and folders that -Y and -M leave when their tests are killed. They are recognised by
// what the tests write into them; a file with anything else in it is somebody's and stays.

#pragma once

#include <string>
#include <vector>

#include "ctl/run/runs.h"

struct leftovers {
    std::vector<std::string> files;
    std::vector<std::string> folders; // removed when they are empty then
};

// What the tests of a run have made, from the folders they work in and the files they have open.
leftovers leftovers_of(const stress_run &run);

// What is in a folder and in the folders in it, and is of none of the runs that go on.
leftovers leftovers_in(const std::string &folder, const std::vector<stress_run> &runs);

// Names each and removes it; with `dry_run` only names it. False when one could not be removed.
bool remove_leftovers(const leftovers &found, bool dry_run);
