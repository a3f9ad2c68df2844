// What every device of the simulated board offers to the rest of it.
//
// To add a device: give it a file of its own with a structure derived from `device`; let
// `open_nodes` create what it shows in /dev (pty.h and `publish_node` of root.h); watch its
// descriptors and times through the event_source part. A function that adds it to the board's
// devices for an option's argument, and a row in option_table.cpp that names the option and that
// function, are all that the rest of the board needs. A device that answers calls names them in
// `stopped_ioctls`, says in `owns` which nodes are its own, and answers in `take_request`. A device
// that can be faulty has its kinds of faults in FAULT_KINDS (fault.h), says in `list_targets` what
// they call it, and accepts them in `take_fault`. Something that hangs on a serial line (a module,
// a feed, a panel) has a `line::device_end`, which `plug_device` of port_options.h joins to a port.
//
// A device lives from the reading of the command line to the end of the run. It is built outside
// the namespaces and opens its nodes inside them, in the process that runs the event loop. That
// process must never block: descriptors are non-blocking, and work that has to wait is finished
// from `ready` or `wake`.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <set>
#include <string>

namespace simulator {

struct device : event_source, request_taker {
    explicit device(std::string own_name = "") : name(std::move(own_name)) {}

    const std::string name; // among devices of its kind; empty where the board has one only

    // Creates the device's nodes. False when that failed, after saying why on standard error.
    virtual bool open_nodes() = 0;

    // Adds the names by which faults call this device, or parts of it, when they are faults of such
    // a thing ("port", "cable", "module").
    virtual void list_targets(std::string_view thing, std::set<std::string> &targets) const {
        (void)thing;
        (void)targets;
    }
    // What the fault would have to say to strike this device, or a part of it, that it names:
    // "bytes 0 to 7". Empty for one that can strike as it is, or is for another device.
    virtual std::string possible_instead(const fault &wanted) const {
        (void)wanted;
        return "";
    }
    // True when the fault is meant for this device, which has it from then on. A copy of the fault
    // shares its times and its count. False for one that could never strike.
    virtual bool take_fault(const fault &wanted) {
        (void)wanted;
        return false;
    }
};

} // namespace simulator
