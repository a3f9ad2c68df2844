// The fault matrix as a table: which fault on the board moves which counter of which test, and
// which it leaves alone.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "tests/support/board_run.h"

// What a number of a list line has come to at the end of the run.
struct bounds {
    int64_t least;
    int64_t most;
};

constexpr bounds STAYS = {0, 0};
constexpr bounds ANY = {0, std::numeric_limits<int64_t>::max()}; // no claim
constexpr bounds exactly(int64_t count) {
    return {count, count};
}
constexpr bounds at_least(int64_t count) {
    return {count, std::numeric_limits<int64_t>::max()};
}

using sample = std::array<int64_t, 2>;
using sample_claim = std::function<bool(const sample &seen)>;

struct line_claim {
    char test;        // its option
    const char *name; // kind code and name
    bounds good;      // the second count: what was read, or sent by a producer
    std::array<bounds, 3> errors = {};
    sample_claim is_sample =
        {}; // holds for every sample that the fault leaves; empty if it leaves none
    bounds first_count = ANY; // what was written, or received by a consumer
};

enum class ending {
    stopped,   // after the cell's seconds
    by_itself, // the tests end, and the run with them
    held,      // stopped when record 1 has acknowledged its hold
    never,     // the supervisor misses the end of a test: the board has to end the run
};

struct fault_cell {
    const char *fault; // the row
    std::vector<std::string> board;
    std::vector<std::string> arguments; // of hk_stress
    std::vector<line_claim> lines;
    std::vector<const char *> log = {}; // lines of the system log that must come, in this order
    // Holds between the numbers of the lines; null where nothing does.
    bool (*also)(const std::vector<result_line> &items) = nullptr;
    const char *prepared_by = nullptr; // a shell command on the board, before hk_stress
    ending end = ending::stopped;
    const char *report = nullptr; // part of the report; then the lists are not looked at
    bool needs_limits = false;    // resource limits that an emulator takes for itself
    double seconds = 20;          // of the board's own time, if the run has to be stopped
};

std::span<const fault_cell> fault_cells();
