// The interface of every device of the simulated board.
//
// To add a device, write a structure derived from `device` in its own file. `open_nodes` creates
// its nodes in /dev (see pty.h and `publish_node` in root.h); the event_source part watches its
// descriptors and times. Add a function that adds the device for an option's argument, and a row in
// option_table.cpp that names the option and the function. A device that answers calls lists them
// in `stopped_ioctls`, identifies its nodes in `owns`, and answers in `take_request`. A device that
// can be faulty has its kinds of faults in FAULT_KINDS (fault_kinds.h), lists its target names in
// `list_targets`, and accepts faults in `take_fault`. A device on a serial line (a module, a feed,
// a panel) has a `line::device_end`; `plug_device` of port_options.h joins it to a port.
//
// A device exists from the reading of the command line to the end of the run. It is built outside
// the namespaces and opens its nodes inside them, in the process that runs the event loop. That
// process must never block: descriptors are non-blocking, and `ready` or `wake` finishes work that
// has to wait.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <set>
#include <string>

namespace simulator {

struct device : event_source, request_taker {
    explicit device(std::string own_name = "") : name(std::move(own_name)) {}

    const std::string name; // among devices of its kind; empty if the board has only one

    // Creates the device's nodes. False after a message on standard error.
    virtual bool open_nodes() = 0;

    // Adds the target names of this device, or of parts of it, for faults of such a thing ("port",
    // "cable", "module").
    virtual void list_targets(std::string_view thing, std::set<std::string> &targets) const {
        (void)thing;
        (void)targets;
    }
    // For a fault that names this device but could never strike it: the numbers that are possible,
    // as in "bytes 0 to 7". Empty for any other fault.
    virtual std::string possible_instead(const fault &wanted) const {
        (void)wanted;
        return "";
    }
    // Takes the fault if it is meant for this device. A copy of the fault shares its times and its
    // count. False if it is meant for another device or could never strike.
    virtual bool take_fault(const fault &wanted) {
        (void)wanted;
        return false;
    }
};

} // namespace simulator
