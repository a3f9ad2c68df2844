// The verdict on everything that was read.

#pragma once

#include <array>
#include <string>
#include <vector>

#include "results/judging/verdict.h"

// What the verdicts on all boards come to.
struct totals {
    struct named {
        std::string name;   // "sp2 loop", with its board if there are more
        std::string reason; // in words
    };
    static constexpr size_t NAMES_KEPT = 8;

    verdict is = verdict::IDLE;
    size_t boards = 0;
    size_t runs = 0;
    std::array<size_t, static_cast<size_t>(verdict::FAIL) + 1> records = {}; // by verdict
    std::vector<named> worst;   // what is worse than pass, the first ones
    std::vector<named> allowed; // what was allowed, the first ones
    size_t worst_count = 0;
    size_t allowed_count = 0;
    std::vector<std::string> idle; // names, the first ones
    uint64_t unreadable_lines = 0;
    size_t reports = 0; // runs that are known from their status report alone

    void add(const board_verdict &board, bool has_others);
    void add(const record_verdict &record, const std::string &where);
    size_t of(verdict is_wanted) const {
        return records[static_cast<size_t>(is_wanted)];
    }
};

totals judge_all(const log_history &history, const judge_rules &rules);

enum exit_code : int {
    EVERYTHING_PASSES = 0,
    SOMETHING_IS_WRONG = 1,
    WRONG_USE_OR_INPUT = 2,
    NOTHING_WAS_TESTED = 3,
};

exit_code exit_code_of(const totals &all);

// The verdict on everything in one line of words.
std::string sentence_of(const totals &all);
