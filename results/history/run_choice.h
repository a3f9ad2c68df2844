// To which run of a board a list belongs. A list does not say: counters that fall, other records
// and gaps in time separate the runs.

#pragma once

#include <span>

#include "results/history/log_history.h"

constexpr int64_t CLOSING_MS = 2000; // between the two lists that end a run

// Returns true if the list shows what the newest one of the run shows.
bool is_same(const run_history &run, std::span<const TestRecord> records);

// Returns the index of the list's run, which may be a new one. Two runs whose lists alternate
// become ambiguous. A list that lacks records of its run becomes a damaged one; one whose lines
// cannot be assigned to records loses them.
size_t choose_run(board_history &board, open_list &list);
