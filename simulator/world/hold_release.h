// Releases held tests. hk_stress starts some of its tests held; hk_ctl releases them, as an
// operator of the real board does.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request_filter.h"

#include <string>
#include <sys/types.h>

namespace simulator {

struct releaser {
    pid_t id = -1;
    unique_fd listener; // for its stopped calls, only in the board's own time
};

// Starts hk_ctl, which releases tests as they start until the board ends. It is the one beside
// hk_board itself, or else the one in PATH. In the board's own time it runs by the rules for the
// program. False after a message when there is none.
bool start_releasing(const std::string &own_program, const filter_rules &rules, releaser &started);

} // namespace simulator
