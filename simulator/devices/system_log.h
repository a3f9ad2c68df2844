// The system log's socket, /dev/log. Each message is shown as it comes and, when asked for,
// forwarded; see syslog(3) for what the C library sends: "<priority>Mmm dd hh:mm:ss ident: text".
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device.h"
#include "simulator/world/log/log_forward.h"

namespace simulator {

struct system_log final : device {
    explicit system_log(log_forward &to) : forward(to) {}

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

private:
    unique_fd socket;
    log_forward &forward;
};

} // namespace simulator
