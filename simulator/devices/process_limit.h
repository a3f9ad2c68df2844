// The table of processes, and its one fault: it has room for so many and no more. What starts a
// process then fails with EAGAIN, as with RLIMIT_NPROC (see getrlimit(2)), which does not hold for
// root. A thread is no process here: the program starts none, but an emulator has its own.
#pragma once

#include "simulator/devices/device_set.h"

#include <vector>

namespace simulator {

struct process_limit final : device {
    // The processes that exist now are the board's own and do not count.
    void count_own();
    bool can_strike() const {
        return !limits.empty();
    }

    bool open_nodes() override {
        return true;
    }
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;
    // A call that starts a process or a thread.
    void take_request(const request &asked) override;

private:
    std::vector<fault> limits;
    int own = 0;
};

void add_process_limit(device_set &devices);

} // namespace simulator
