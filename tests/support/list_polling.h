// Requests results lists of a run until its counters are as a case expects.

#pragma once

#include <functional>
#include <vector>

#include "tests/support/board_run.h"

// The parsed items of a new list. An item is empty if its line is not one of a test.
std::vector<result_line> list_now(board_run &run);

// The items of the last list in the log.
std::vector<result_line> last_list(const board_run &run);

// Requests lists, about ten times a second, until the claim about the items holds, and returns the
// items of that list. The case fails if that takes too long or no list comes.
std::vector<result_line>
lists_until(board_run &run, const std::function<bool(const std::vector<result_line> &)> &claim);

// The claim that every item's second count has reached `count`.
struct second_count_is_at_least {
    int64_t count;
    bool operator()(const std::vector<result_line> &items) const;
};

void pause_between_lists();
