// The counters of every record over time, for plots. Long runs are thinned: each keeps at most some
// thousand lists, and fewer if there are many runs.

#pragma once

#include <unordered_map>

#include "results/history/log_history.h"

struct run_series {
    struct point {
        uint64_t count = 0;  // the second count of the line
        uint64_t errors = 0; // all three
    };
    std::vector<int64_t> times_ms;
    std::vector<std::vector<point>> records; // one point for each time
    uint32_t stride = 1;                     // lists for each point
    uint32_t skipped = 0;                    // lists since the last point
};

class series_keeper : public list_observer {
public:
    void list_taken(const board_history &board, size_t run, const open_list &list) override;
    // Returns null if the run has no points.
    const run_series *of(const board_history &board, size_t run) const;

private:
    void thin_all();

    std::unordered_map<const board_history *, std::vector<run_series>> kept;
    size_t points = 0;
};
