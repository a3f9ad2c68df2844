// Lets other hk_boards enter (--enter). The board sends each visitor a descriptor of its first
// process, whose namespaces the visitor enters, and the numbers of the requests to stop. The
// visitor sends back the descriptor on which its stopped calls arrive. The board serves them like
// those of its own program.
#pragma once

#include "simulator/requests/request_channel.h"
#include "simulator/requests/request_filter.h"

#include <list>

namespace simulator {

struct entrance final : event_source {
    unique_fd listener;                  // see claim_name; none: the board has no name
    std::vector<request_taker *> takers; // of the board's devices
    call_taker *ports = nullptr;         // see request_channel
    request_taker *process_limit = nullptr;
    filter_rules rules; // of the board's own program, and of each visitor's

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

private:
    void accept_visitor();

    std::vector<unique_fd> visitors; // that have not sent their descriptor yet
    std::list<request_channel> channels;
};

// For the visitor: enters the namespaces of the board at the other side of the connection. From
// then on its children run on the board. Sets `rules` to what their filter must stop. False after a
// message.
bool move_in(int connection, filter_rules &rules);

} // namespace simulator
