// Where to look: what the counters of a record that fails say about the place of the fault.

#pragma once

#include <string>
#include <vector>

#include "results/history/log_history.h"

// Returns false if the test of a record could not open its device.
bool is_opened(const run_history &run, size_t index);

// Returns true if the tests complained of something that no counter shows: the first record of -F
// then fails.
bool has_complaint(const run_history &run, size_t index);

// Returns true if the record's test reported that it reads no more.
bool has_given_up(const run_history &run, const record_history &record);

// The likely place of the fault of a record, most likely first, in words.
std::vector<std::string> places_of(const run_history &run, size_t index);

// Adds what the tests complained of to the remarks on the run.
void note_complaints(const run_history &run, std::vector<std::string> &remarks);
