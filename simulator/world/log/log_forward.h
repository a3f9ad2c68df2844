// Passes the board's log messages on, unchanged, to a Unix datagram socket of the machine: that of
// a syslog daemon, so that what a rack of boards sends can be tried with simulated ones.
//
// The receiver may be slow, and the kernel keeps only a few datagrams for it (10, unless
// /proc/sys/net/unix/max_dgram_qlen says otherwise). Messages wait here then, so that the board
// never does; what does not fit is counted.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/time/event_loop.h"

#include <deque>
#include <string>
#include <string_view>

namespace simulator {

struct log_forward final : event_source {
    // Connects to the socket at `path`. The connection holds on the board too, where the path may
    // lead nowhere; a receiver that goes is not looked for again. False after a message.
    bool connect_to(const std::string &path);

    // Sends one message, at once or when the receiver takes it. Does nothing when not connected.
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
