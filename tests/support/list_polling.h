// Asking a run for results lists until its counters say what a case waits for.

#pragma once

#include <functional>
#include <vector>

#include "tests/support/board_run.h"

// The items of one list that is asked for now, parsed. Where a line is none, its item is empty.
std::vector<result_line> list_now(board_run &run);

// Those of the last list in the log.
std::vector<result_line> last_list(const board_run &run);

// Asks again and again, some ten times a second, until the claim about the items holds, and returns
// the items of that list. The case ends as failed when that takes too long or no list comes.
std::vector<result_line>
lists_until(board_run &run, const std::function<bool(const std::vector<result_line> &)> &claim);

// The claim that every item's second count has reached `count`.
struct second_count_is_at_least {
    int64_t count;
    bool operator()(const std::vector<result_line> &items) const;
};

void pause_between_lists();
