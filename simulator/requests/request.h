// One ioctl request of the program under test, stopped in the kernel until the board answers it.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace simulator {

struct request {
    int listener;      // the notification descriptor it came from and is answered on
    uint64_t id;       // the kernel's name for it
    pid_t caller;      // the thread that asked
    uint32_t number;   // ioctl request number
    uint64_t argument; // third argument: an address in the caller's memory, or a plain number
};

// Copies between the board and the request's argument in the caller's memory. False when the caller
// has no such memory or has gone; the request is then to be refused with EFAULT.
bool read_argument(const request &asked, void *to, size_t bytes);
bool write_argument(const request &asked, const void *from, size_t bytes);

// Lets the caller's ioctl return `value`, or -1 with errno `error`. A caller that was killed
// meanwhile is no error: there is nobody left to answer.
void answer(const request &asked, int64_t value);
void refuse(const request &asked, int error);
// Lets the kernel carry out the request as if the board had not seen it.
void pass_on(const request &asked);

} // namespace simulator
