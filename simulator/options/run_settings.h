// The operator's settings of a run, apart from devices.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/own_time/calls/work_costs.h"
#include "simulator/time/clock.h"

#include <string>
#include <vector>

namespace simulator {

constexpr int SEED_COUNT = 1'000'000'000; // seeds are below it

constexpr int64_t DEFAULT_START_US = 1'767'225'600 * US_PER_SECOND; // 2026-01-01 00:00:00

struct run_settings {
    std::vector<fault> faults;
    // Of random faults. Each run without --seed uses another one.
    int seed = static_cast<int>(calendar_us() % SEED_COUNT);
    int64_t run_us = NEVER; // time until the program gets SIGTERM
    std::string log_path;   // empty: none
    std::string name;       // empty: none
    bool quiet = false;     // the log is not shown
    bool release = false;   // held tests are released
    bool own_time = false;  // --clock virtual
    bool strict = false;    // a sleeping call that is not modelled is an error
    std::string calls_path; // empty: none
    double speed = 0;       // of the board's own time, in times the machine's; 0: without a limit
    work_costs costs;       // of computing, in the board's own time
    int64_t start_us = DEFAULT_START_US; // the date at which the board's own time starts
};

// Each takes the argument of one option. False after a message that says what is valid.
bool take_fault(run_settings &settings, const char *text);       // --fault
bool take_seed(run_settings &settings, const char *text);        // --seed, before the faults
bool take_for(run_settings &settings, const char *text);         // --for
bool take_log(run_settings &settings, const char *path);         // --log
bool take_name(run_settings &settings, const char *name);        // --name
bool take_quiet(run_settings &settings, const char *);           // --quiet
bool take_release(run_settings &settings, const char *);         // --release
bool take_clock(run_settings &settings, const char *text);       // --clock
bool take_speed(run_settings &settings, const char *text);       // --speed
bool take_calls(run_settings &settings, const char *path);       // --calls
bool take_strict(run_settings &settings, const char *);          // --strict
bool take_clock_costs(run_settings &settings, const char *text); // --clock-costs
bool take_start(run_settings &settings, const char *text);       // --start

} // namespace simulator
