// What the words of the command line name: a run, records and tests.

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
    NOTHING_THERE = 3,   // to judge
};

// Reports segments that this user may not read.
void report_denied(const run_list &found);

// The run that is named, "@12" by its supervisor's process or its segment; "12" too where `plain`
// is set. `words` loses the name. Without a name it is the only one. None after a message; `status`
// then says what it is.
std::optional<stress_run> choose_run(std::span<char *const> &words, bool plain, int &status);

// The tests that the words name: numbers of records, letters or names of tests, "all". False after
// a message.
bool choose_tests(const stress_run &run, std::span<char *const> words,
                  std::vector<test_group> &chosen);
