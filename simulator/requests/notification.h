// The kernel's side of a stopped call: the notifications on a filter's listener, see
// seccomp_unotify(2).
#pragma once

#include "simulator/requests/request.h"

#include <linux/seccomp.h>

namespace simulator {

// Takes the next stopped call. False if it is gone (its caller was killed).
bool receive(int listener, request &asked);

// What a call returns: a value or an error (0: none), and flags of the kernel's response structure.
struct response {
    int64_t value;
    int error;
    uint32_t flags;
};

// Where time is the board's own, an answer does not release its caller: it is kept until the caller
// has its turn.
struct response_keeper {
    virtual ~response_keeper() = default;
    virtual void keep(const request &asked, const response &given) = 0;
};
void keep_responses(response_keeper *keeper); // null: they are sent at once

// Lets the caller go on. False if it has been killed.
bool send_response(const request &asked, const response &given);

// Answers a call with a value or an error (0: none) and flags of the kernel's response structure.
void respond(const request &asked, int64_t value, int error, uint32_t flags);

// Gives the caller a copy of the board's descriptor as `number`, or as its lowest free number if
// `number` is negative. The call returns that number. On failure the call stays unanswered: false
// with errno set.
bool install(const request &asked, int descriptor, int number, bool close_on_exec);

// Asks the kernel to wake board and caller on one processor (Linux 6.6), which is much cheaper.
void prefer_own_processor(int listener);

// True while the caller waits for the answer, false once it was killed.
bool is_waiting(const request &asked);

// The same after the board has looked at the caller's memory or at its /proc. Where responses are
// kept, a caller that is looked at cannot end meanwhile: the kernel need not be asked.
bool is_still_waiting(const request &asked);

} // namespace simulator
