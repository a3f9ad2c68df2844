// What every device of the simulated board offers to the rest of it.
//
// To add a device: give it a file of its own with a structure derived from `device`; let
// `open_nodes` create what it shows in /dev (pty.h and `publish_node` of root.h); watch its
// descriptors through the event_source part; create it in board.cpp from its option, and give the
// option a row in options.cpp. A device that answers ioctl requests adds their numbers to the list
// in request_filter.cpp, says in `owns` which nodes are its own, and answers in `take_request`. A
// device that can be faulty adds rows to FAULT_KINDS in fault.h and accepts them in `take_fault`.
// Something that hangs on a serial line (a module, a feed, a panel) is also a `line_partner` of its
// port, see serial_port.h.
//
// A device lives from the reading of the command line to the end of the run. It is built outside
// the namespaces and opens its nodes inside them, in the process that runs the event loop. That
// process must never block: descriptors are non-blocking, and work that has to wait is finished
// from `ready` or `wake`.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

namespace simulator {

struct device : event_source, request_taker {
    // Creates the device's nodes. False when that failed, after saying why on standard error.
    virtual bool open_nodes() = 0;

    // True when the fault is meant for this device, which has it from then on.
    virtual bool take_fault(const fault &wanted) {
        (void)wanted;
        return false;
    }
};

} // namespace simulator
