// Finds the run, records and tests that the words of the command line name.

#pragma once

#include <optional>
#include <span>
#include <vector>

#include "ctl/run/runs.h"

// The exit status of hk_ctl.
enum exit_status : int {
    DONE = 0,
    SOMETHING_WRONG = 1, // in the run
    WRONG_USE = 2,       // or no such run
    NOTHING_THERE = 3,   // nothing to judge
};

// Reports segments that this user may not read.
void report_denied(const run_list &found);

// The run that the first word names by its supervisor's pid or its segment, as "@12", or with
// `plain` also as "12". Removes that word from `words`. Without a name: the only run. None after a
// message; `status` is then the exit status.
std::optional<stress_run> choose_run(std::span<char *const> &words, bool plain, int &status);

// The tests that the words name: numbers of records, letters or names of tests, "all". False after
// a message.
bool choose_tests(const stress_run &run, std::span<char *const> words,
                  std::vector<test_group> &chosen);
