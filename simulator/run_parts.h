// What takes part in a run: the program, the devices, visitors, and who answers their calls.
#pragma once

#include "simulator/board.h"
#include "simulator/devices/process_limit.h"
#include "simulator/devices/serial/port_calls.h"
#include "simulator/requests/request_channel.h"
#include "simulator/requests/request_filter.h"
#include "simulator/world/entrance.h"
#include "simulator/world/hold_release.h"
#include "simulator/world/program_run.h"

#include <vector>

namespace simulator {

struct run_parts {
    explicit run_parts(board &of);

    // Connects the parts with each other. The nodes of the devices are open. False after a message.
    bool connect();
    // For the program and for hk_ctl.
    filter_rules program_rules() const;

    board &built;
    program_run run;
    request_channel requests;
    port_calls calls;
    process_limit &processes;
    entrance visitors;
    releaser release;
    std::vector<event_source *> sources; // everything that waits, in the order of their turns
};

} // namespace simulator
