// The system log's socket, /dev/log. The board shows each message as it comes and forwards it if
// asked to. The C library sends, see syslog(3): "<priority>Mmm dd hh:mm:ss ident: text".
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device_set.h"
#include "simulator/devices/presence_faults.h"
#include "simulator/world/log/log_forward.h"

namespace simulator {

struct system_log final : device {
    log_forward forward; // not connected without --forward

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    bool has_unsent() const override;
    void report_unsent() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

    // Shows what has been sent.
    void take_messages();

private:
    bool open_socket();

    unique_fd socket; // not open while the log is gone
    presence_faults absence;
};

void add_system_log(device_set &devices);
bool forward_log(device_set &devices, const char *path); // --forward

} // namespace simulator
