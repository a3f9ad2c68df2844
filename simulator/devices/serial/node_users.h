// The processes of the board that have the node of a port open, and their descriptors, from
// /proc/PID/fd. A look takes some milliseconds.
#pragma once

#include "simulator/devices/serial/port_node.h"
#include "simulator/requests/stopped_calls.h"

#include <vector>

namespace simulator {

std::vector<pid_t> all_processes();

// The descriptors of a process that refer to the node; none if the process has ended.
std::vector<int> descriptors_of(pid_t process, const port_node &node);

// The kinds of descriptors of a node that are open, see port_descriptors.
struct node_users {
    bool has_high; // that the filter stops, above those of standard input and output
    bool has_low;  // that the filter does not stop
};
node_users users_of(const port_node &node, const port_descriptors &numbers);

} // namespace simulator
