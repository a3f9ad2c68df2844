// Receives the stopped calls of the program under test: takes each from the kernel, finds what its
// descriptor refers to, and hands the call over.
//
// A process that uses a call table other than the processor's own (a 32-bit program) makes calls
// that the board does not see. The board ends it with a message.
//
// The taker depends on what the descriptor refers to, not on its number or name: the status of
// /proc/PID/fd/N is compared with the takers' nodes. A call on anything else (for example the
// operator's terminal) goes to the kernel unchanged. See seccomp_unotify(2).
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <vector>

namespace simulator {

// Answers the calls on some of the board's nodes.
struct call_taker {
    virtual ~call_taker() = default;
    // True if it has answered the call, or will.
    virtual bool take(const request &asked) = 0;
};

struct request_channel final : event_source {
    unique_fd listener; // closed once no process of the program is left
    std::vector<request_taker *> takers;
    call_taker *ports = nullptr;            // none: the board has no port
    call_taker *lamp = nullptr;             // none: the LED's terminal answers
    request_taker *process_limit = nullptr; // none: any number of processes

    void listen_on(unique_fd filters_listener);

    // The request numbers that the kernel must stop for all takers, each once.
    std::vector<uint32_t> stopped_ioctls() const;

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

    // Finds who answers a stopped call; the kernel carries it out if nobody does.
    void hand_over(const request &asked);

private:
    void refuse_foreign(const request &asked);
    request_taker *find_taker(const request &asked) const;

    bool has_refused = false;
};

} // namespace simulator
