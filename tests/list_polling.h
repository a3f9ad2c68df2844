// Asking a run for results lists until its counters say what a case waits for.

#pragma once

#include <vector>

#include "tests/board_run.h"

// The items of one list that is asked for now, parsed. Where a line is none, its item is empty.
std::vector<result_line> list_now(board_run &run);

// Those of the last list in the log.
std::vector<result_line> last_list(const board_run &run);

// Asks again and again, some ten times a second, until the claim about the items holds, and returns
// the items of that list. The case ends as failed when that takes too long or no list comes.
template <typename Claim>
std::vector<result_line> lists_until(board_run &run, Claim claim);

// The claim that every item's second count has reached `count`.
struct second_count_is_at_least {
    int64_t count;
    bool operator()(const std::vector<result_line> &items) const;
};

void pause_between_lists();
[[noreturn]] void give_up(const board_run &run);

template <typename Claim>
std::vector<result_line> lists_until(board_run &run, Claim claim) {
    constexpr int TRIES = 300; // half a minute, and more on a slow machine
    for (int tries = 0; tries < TRIES; ++tries) {
        const std::vector<result_line> items = list_now(run);
        if (items.empty())
            break; // the run has ended, or answers no more
        if (claim(items))
            return items;
        pause_between_lists();
    }
    give_up(run);
}
