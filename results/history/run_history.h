// One run as its lists show it: the records as the last list has them, with what has to be
// remembered from the lists before. A night of lists and one list take the same memory.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "results/history/complaints.h"
#include "results/reading/lines/log_line.h"
#include "results/reading/report_reader.h"
#include "results/reading/rows/row_reader.h"
#include "runtime/record.h"
#include "runtime/record_letter.h"

// Log periods are 5 to 600 s, rounded up to a multiple of 1 to 60 s, see hk_stress(8).
constexpr int64_t SHORTEST_PERIOD_MS = 5000;
constexpr int64_t LONGEST_PERIOD_MS = 660000;

// Returns true if a test of this letter writes the record.
inline bool is_of(const TestRecord &record, record_letter letter) {
    return record.test_letter == static_cast<int32_t>(letter);
}

// One record of a run. Counters are words of 32 bits that start again at 0 after 2^32.
struct record_history {
    TestRecord newest;                         // as the last list shows it
    const line_layout *layout = nullptr;       // of its line
    line_start start;                          // of its line
    std::array<uint32_t, 2> first_counts = {}; // in the first list
    std::array<uint16_t, 2> count_wraps = {};
    std::array<uint16_t, 3> error_wraps = {};                           // in the order of the line
    std::array<int64_t, 3> error_seen_ms = {NO_TIME, NO_TIME, NO_TIME}; // first list that shows it
    int64_t moved_at_ms = 0;         // on the run's clock: the last list that shows progress
    int64_t longest_rest_ms = 0;     // without progress, after the first
    int64_t rest_since_ms = NO_TIME; // of the day: where the longest rest began
    bool has_bad_blocks = false;     // by the bit rate of a report, which does not count them

    uint64_t count(size_t number) const; // 0 or 1: the first or second count of the line
    uint64_t error(size_t number) const; // 0 to 2: an error counter of the line
    uint64_t moved_since_first(size_t number) const;
    bool is_clean() const { // no error up to now
        return newest.errors == 0 && newest.errors2 == 0 && newest.errors3 == 0;
    }
};

// The time between two lists of a run, by majority: lists that a signal or the end adds are few.
struct log_period {
    int64_t ms = 0; // 0: not known
    int32_t votes = 0;
    int64_t pending_ms = 0; // the last interval: counts unless the next list follows at once

    bool is_added = false; // a signal added the newest list: it came sooner

    void add_interval(int64_t interval_ms);
    int64_t value_ms() const;
};

// Lists at which the counters hardly moved although they move all the time. They come in equal
// intervals if two runs write lists in turn.
struct hesitations {
    int64_t last_ms = NO_TIME; // on the run's clock
    int64_t interval_ms = NO_TIME;
};

// A run that began after the end of another, with higher counters: how long after its last list,
// and by how many steps.
struct growth {
    int64_t interval_ms = NO_TIME;
    double step = 0;
};

struct run_history {
    std::vector<record_history> records;
    std::unique_ptr<complaint_counts> complaints; // null if there are none
    log_period period;
    hesitations pauses;
    int64_t first_ms = NO_TIME; // the first list, of the day
    int64_t last_ms = NO_TIME;
    int64_t clock_ms = 0;   // since the first list; a clock that is set back does not count
    uint32_t lists = 0;     // complete ones
    uint32_t cut_lists = 0; // without end or start, or with a line that could not be read
    int32_t pid = 0;
    bool is_ambiguous = false; // two runs at once under one ident
    bool is_closed = false;    // its last list came twice: the run has ended
    bool is_report = false;    // known from its status report alone: no list, no time
};

// Returns true if a record has stalled: it made no progress for at least a log period.
// Lists that a signal or the end adds come sooner.
bool is_a_stall(const run_history &run, int64_t rest_ms);

// The list that is being received.
struct open_list {
    std::vector<TestRecord> records;
    int64_t time_ms = NO_TIME;
    int32_t pid = 0;
    bool has_start = true;
    bool is_damaged = false; // without start or end, or with a line that could not be read
};

// Adds a list to its run.
void take_list(run_history &run, const open_list &list);

// The run that a status report shows.
run_history run_of(const status_report_lines &report);
