// The verdict on each record, run and board.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "results/history/log_history.h"
#include "results/judging/allowance.h"
#include "results/judging/expectation.h"
#include "supervisor/lists/counter_meanings.h"

// The worse of two is the greater one, but among records that pass an idle one only has its name
// told, see worst_of.
enum class verdict : uint8_t {
    NOT_JUDGED, // no line shows it, or only a report, which does not show all: see status_report
    IDLE,       // held, or without its device: it never worked, and counted no error
    PASS,       // worked, and no error but the allowed ones
    UNEXPECTED, // there, but not expected
    MISSING,    // expected, but not there
    CUT,        // a list without its end
    STALLED,    // no progress over lists that are a log period or more apart
    AMBIGUOUS,  // two runs at once under one ident
    FAIL,
};

const char *name_of(verdict is);

// An error counter that is not 0.
struct moved_error {
    size_t number = 0;        // 0 to 2, in the order of the line
    const char *field = "";   // of the record: "errors2"
    const char *meaning = ""; // in words
    uint64_t count = 0;
    double per_hour = 0;        // 0 if the run was too short to say
    int64_t first_ms = NO_TIME; // of the first list that shows it
    std::string allowed_by;     // the rule; empty if it is not allowed
};

struct record_verdict {
    verdict is = verdict::PASS;
    bool is_expected = false;
    bool needs_log = false; // the status report does not show enough of it
    std::string name;       // as in the list: "sp2 loop"
    std::string option;     // "-E28" if it was expected, else the letter "-E"
    const char *test = "";
    const record_history *record = nullptr; // null if it is missing or not judged
    const counter_meaning *meaning = nullptr;
    std::vector<moved_error> errors;
    std::vector<std::string> reasons; // in words; the first one is the chief one
    std::vector<std::string> samples; // in words, newest first
    double per_second = 0;            // of the second count, over the run
};

struct run_verdict {
    verdict is = verdict::PASS;
    const run_history *run = nullptr;
    size_t number = 1; // of the board's runs
    std::vector<record_verdict> records;
    std::vector<std::string> remarks; // on the run as a whole, in words
};

struct board_verdict {
    verdict is = verdict::PASS;
    const board_history *board = nullptr;
    std::vector<run_verdict> runs;
};

struct judge_rules {
    std::vector<allowance> allowed;
    std::optional<std::vector<expected_record>> expected;
};

board_verdict judge(const board_history &board, const judge_rules &rules);

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
