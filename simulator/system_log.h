// The system log's socket, /dev/log. Each message is shown as it comes; see syslog(3) for what the
// C library sends: "<priority>Mmm dd hh:mm:ss ident: text".
#pragma once

#include "simulator/device.h"
#include "simulator/unique_fd.h"

namespace simulator {

struct system_log final : device {
    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

private:
    unique_fd socket;
};

} // namespace simulator
