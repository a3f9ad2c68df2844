// The verdict on each record, run and board.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "results/history/log_history.h"
#include "results/judging/allowance.h"
#include "results/judging/expectation.h"
#include "supervisor/lists/counter_meanings.h"

// The worse of two is the greater one. An idle record among records that pass is only named.
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

// "bad blocks, last silences before a hold: 3"
std::string error_words(const moved_error &error);

// "; first in the list of 2026-11-22 01:30:51", nothing if the time is not known.
std::string first_seen_text(const moved_error &error);

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
