// The forms in which the verdict is given. A report is written board by board: memory holds one
// board's verdict at a time, however many there are.

#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "results/judging/totals.h"

class series_keeper;

class report {
public:
    virtual ~report() = default;
    virtual void start(const totals &all) = 0;
    virtual void add(const board_verdict &board) = 0;
    virtual void finish(const totals &all) = 0;
};

// For people: a line for each record, the verdict in the last line.
std::unique_ptr<report> table_report(std::ostream &out, bool is_coloured);
// One page of HTML with everything in it: it opens from disk, without network, and prints on one
// sheet for a board of a few records. Runs have a plot for each record, from `points`.
std::unique_ptr<report> page_report(std::ostream &out, const series_keeper &points);
// One object, see docs/hk_results.schema.json.
std::unique_ptr<report> json_report(std::ostream &out);
// A test suite for each run, a test case for each record.
std::unique_ptr<report> junit_report(std::ostream &out);
// The Test Anything Protocol, version 14: a test point for each record.
std::unique_ptr<report> tap_report(std::ostream &out);

// A row for each record of each list, written as the lists are read.
std::unique_ptr<list_observer> csv_rows(std::ostream &out);

// Writes the verdict on everything.
void write_report(report &form, const log_history &history, const judge_rules &rules,
                  const totals &all);
