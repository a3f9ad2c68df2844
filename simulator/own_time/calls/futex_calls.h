// futex(2), carried out by the board: waits and wakes of threads and of shared memory.
//
// The word is read when the call is made, as in the kernel: no other thread runs meanwhile. In
// memory that processes share it is found by its place in the file, since each may have it at
// another address.
#pragma once

#include "simulator/own_time/processes.h"
#include "simulator/requests/held_calls.h"

#include <memory>
#include <vector>

namespace simulator {

struct futex_wait;

struct futexes {
    // Takes the call. False if it is an operation that is left to the kernel.
    bool take(const request &asked, thread &caller, const process_table &processes,
              held_calls &held);

    std::vector<futex_wait *> waiting; // in the order of their arrival

private:
    int64_t wake(const request &asked, const thread &caller);
    int64_t requeue(const request &asked, const thread &caller);
};

} // namespace simulator
