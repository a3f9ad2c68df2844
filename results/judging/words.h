// Records, runs and boards in words.

#pragma once

#include <string>
#include <vector>

#include "results/history/log_history.h"
#include "supervisor/lists/counter_meanings.h"

// The record's name in the list, with '?' for what a terminal cannot show.
std::string printable_name(const TestRecord &record);

// The board as the log names it: "Stress 020000001234 on rack7".
std::string name_of(const board_history &board);

// "2026-11-22 01:30:51"; "-" for a time that is not known.
std::string time_text(int64_t time_ms);
// "8 h 20 min", "31 s"
std::string duration_text(int64_t duration_ms);

// "2026-11-22 01:30:51 to 2026-11-22 01:31:22 (31 s), 4 lists"
std::string span_text(const run_history &run);

std::string why_idle(const TestRecord &record, const counter_meaning &meaning);
std::string why_stalled(const run_history &run, const record_history &record);

// The newest error samples, each in words; none if the test keeps none or no error has one.
std::vector<std::string> samples_of(const record_history &record, const counter_meaning &meaning);
