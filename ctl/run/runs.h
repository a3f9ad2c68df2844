// The runs on this machine, each with its table and its processes.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/run/processes.h"
#include "ctl/run/segment.h"
#include "ctl/run/tests.h"

enum class supervisor_state : uint8_t {
    RUNNING,
    GONE,
    UNSEEN, // the table's processes belong to another user
};

struct stress_run {
    segment memory;
    table_copy copy;
    size_t records_used = 1;
    std::vector<test_group> tests;
    supervisor_state supervisor_is = supervisor_state::GONE;
    process supervisor;                  // if it is running
    std::vector<process> test_processes; // those that are running
    std::vector<std::string> options;    // of the command line; empty if no process is left

    const StatusTable &table() const {
        return copy.table;
    }
    pid_t supervisor_id() const {
        return copy.table.records[0].pid;
    }
    bool has_lost_supervisor() const {
        return supervisor_is == supervisor_state::GONE;
    }
    bool is_killed() const {
        return has_lost_supervisor() && !test_processes.empty();
    }
    bool is_over() const {
        return has_lost_supervisor() && test_processes.empty();
    }
    test_state state_of(const test_group &test) const;
    const test_group &test_of(size_t record) const;
    const counter_meaning &meaning_of(size_t record) const;
};

struct run_list {
    std::vector<stress_run> runs;
    std::vector<segment> denied; // of a table's size, which this user may not read
};

// "running", "killed", "over" or "unseen".
const char *name_of_state(const stress_run &run);

run_list find_runs();

// The same run as it is now; none if its segment is gone.
std::optional<stress_run> look_again(const stress_run &run);

// Whether the run has counted errors, and whether a test has ended while the run goes on.
bool has_counted_errors(const stress_run &run);
bool has_lost_tests(const stress_run &run);
