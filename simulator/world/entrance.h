// Where other hk_boards come in (--enter). The board gives each visitor its own first process, into
// whose namespaces the visitor moves, and the requests that are to be stopped; it receives the
// descriptor on which the visitor's stopped calls arrive, and serves them like its own program's.
#pragma once

#include "simulator/requests/request_channel.h"
#include "simulator/requests/request_filter.h"

#include <list>

namespace simulator {

struct entrance final : event_source {
    unique_fd door;                      // see claim_name; none: the board has no name
    std::vector<request_taker *> takers; // of the board's devices
    call_taker *ports = nullptr;         // see request_channel
    filter_rules rules;                  // of the board's own program, and of each visitor's

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

private:
    void let_in();

    std::vector<unique_fd> visitors; // which have not sent their descriptor yet
    std::list<request_channel> channels;
};

// For the visitor: moves into the namespaces of the board at the other side of the connection. Its
// children are on the board from then on. `rules` says what their filter stops. False after a
// message.
bool move_in(int connection, filter_rules &rules);

} // namespace simulator
