// What the operator asks for besides devices.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/time/clock.h"
#include "simulator/world/network.h"

#include <string>
#include <vector>

namespace simulator {

struct run_settings {
    std::vector<fault> faults;
    mac_address mac = {0x02, 0x00, 0x00, 0x00, 0x12, 0x34};
    int64_t run_us = NEVER; // after which the program gets SIGTERM
    std::string log_path;   // empty: none
    std::string name;       // empty: none
    bool quiet = false;     // the log is not shown
    bool release = false;   // held tests are released
};

// Each takes the argument of one option. False after a message that says what is valid.
bool take_fault(run_settings &settings, const char *text); // --fault
bool take_mac(run_settings &settings, const char *text);   // --mac
bool take_for(run_settings &settings, const char *text);   // --for
bool take_log(run_settings &settings, const char *path);   // --log
bool take_name(run_settings &settings, const char *name);  // --name
bool take_quiet(run_settings &settings, const char *);     // --quiet
bool take_release(run_settings &settings, const char *);   // --release

} // namespace simulator
