// Where the stopped requests of the program under test arrive: takes each from the kernel, finds
// the device behind its descriptor and hands it over.
//
// The device is found by what the descriptor refers to, not by its number or name: the status of
// /proc/PID/fd/N is compared with the devices' own nodes. A request on anything else (the
// operator's terminal, say) goes to the kernel as if nobody had looked. See seccomp_unotify(2).
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device.h"

#include <memory>
#include <vector>

namespace simulator {

struct request_channel : event_source {
    unique_fd listener; // closed once no process of the program is left
    const std::vector<std::unique_ptr<device>> *devices = nullptr;

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
};

} // namespace simulator
