// Lets other hk_boards enter (--enter). The board sends each visitor a descriptor of its first
// process, whose namespaces the visitor enters, and the numbers of the requests to stop. The
// visitor sends back the descriptor on which its stopped calls arrive. The board serves them like
// those of its own program.
#pragma once

#include "simulator/requests/request_channel.h"
#include "simulator/requests/request_filter.h"

#include <list>
#include <string>
#include <vector>

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

// The visitor's side: runs a program on the board of that name, in the current directory of the
// machine. Returns the exit status of hk_board.
int visit_board(const std::string &name, char *const *program, const std::string &directory);

} // namespace simulator
