// One system call of the program under test, which the kernel stops until the board answers it; and
// the interface of those that answer.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/stat.h>
#include <sys/types.h>

namespace simulator {

struct request {
    int listener;          // notification descriptor of the call and of its answer
    uint64_t id;           // the kernel's number for it
    pid_t caller;          // the thread that asked
    uint32_t architecture; // the call table of the number, see linux/audit.h
    int call;              // number of the system call
    std::array<uint64_t, 6> arguments;
    uint64_t place = 0; // of the instruction after the one that entered the kernel

    // The descriptor that the call is about.
    int descriptor() const {
        return static_cast<int>(arguments[0]);
    }
    // Of an ioctl: its request number, and an address in the caller's memory or a plain number.
    uint32_t ioctl_number() const {
        return static_cast<uint32_t>(arguments[1]);
    }
    uint64_t ioctl_argument() const {
        return arguments[2];
    }
};

// Answers calls on its own nodes.
struct request_taker {
    virtual ~request_taker() = default;

    // The ioctl request numbers that the kernel must stop for it.
    virtual std::span<const uint32_t> stopped_ioctls() const {
        return {};
    }
    // True if a descriptor with this status (fstat(2)) refers to one of its nodes.
    virtual bool owns(const struct stat &node) const {
        (void)node;
        return false;
    }
    // Takes a stopped call on one of its nodes and must answer it once, now or later: the caller
    // waits until then.
    virtual void take_request(const request &asked);
};

// Copies `bytes` bytes from or to an address in the caller's memory. False if the caller has no
// such memory or is gone; refuse the call with EFAULT then.
//
// The kernel gives the pid of a killed caller to a new process only after it has used all other
// pids. So what is read right after the call has arrived, or after `is_waiting`, is the caller's.
// Before each write the kernel is asked in any case.
bool read_memory(const request &asked, uint64_t address, void *to, size_t bytes);
bool write_memory(const request &asked, uint64_t address, const void *from, size_t bytes);

// Copies up to `bytes` bytes from an address, as many as the caller has there. Returns how many.
size_t read_up_to(const request &asked, uint64_t address, void *to, size_t bytes);

// Lets the call return `value`, or -1 with errno `error`. It is no error if the caller was killed
// meanwhile.
void answer(const request &asked, int64_t value);
void refuse(const request &asked, int error);
// Lets the kernel carry out the call as if the board had not seen it.
void pass_on(const request &asked);

} // namespace simulator
