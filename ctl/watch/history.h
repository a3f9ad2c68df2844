// What watch remembers of each record between updates: its rates, and whether its errors have
// moved.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "ctl/run/runs.h"

constexpr size_t RATES_KEPT = 60;

struct record_history {
    uint32_t count = 0;
    std::array<int32_t, 3> errors = {};
    bool errors_moved = false;                 // since the previous update
    std::array<double, RATES_KEPT> rates = {}; // per second, oldest first; `rates_known` are set
    size_t rates_known = 0;

    double newest_rate() const {
        return rates_known == 0 ? 0 : rates[rates_known - 1];
    }
};

class history {
public:
    // Adds the state of the run at this time, see now_ms().
    void add(const stress_run &run, int64_t time_ms);

    const record_history &of(size_t record) const {
        return records[record];
    }

private:
    std::array<record_history, TABLE_RECORDS> records = {};
    int64_t last_ms = 0; // time of the previous update, 0 at the first
};

// The count that shows that a test works: what it reads, or what it writes if it only writes.
uint32_t work_count(const TestRecord &record, const counter_meaning &meaning);

// The newest rates as a row of characters, at most `width`, scaled to the highest of them.
std::string sparkline(const record_history &of, size_t width, bool utf8);
