// Forwards the board's log messages, unchanged, to a Unix datagram socket of the machine, such as a
// syslog daemon's. Several simulated boards can thus send the daemon what a rack of boards sends.
//
// The receiver may be slow, and the kernel queues only a few datagrams for it (10 by default, see
// /proc/sys/net/unix/max_dgram_qlen). Further messages wait here, and the board goes on. Messages
// that do not fit are dropped and counted.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/time/event_loop.h"

#include <deque>
#include <string>
#include <string_view>

namespace simulator {

struct log_forward final : event_source {
    // Connects to the socket at `path`. The connection stays valid inside the board, where the path
    // may not exist. If the receiver goes away, the board does not connect again. False after a
    // message.
    bool connect_to(const std::string &path);

    // Sends one message, at once or when the receiver takes it. Does nothing if not connected.
    void send(std::string_view message);
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    bool has_unsent() const override;
    void report_unsent() override;

private:
    void send_waiting();

    unique_fd socket;
    std::deque<std::string> waiting;
    size_t lost = 0;
};

} // namespace simulator
