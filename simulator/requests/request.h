// One system call of the program under test, stopped in the kernel until the board answers it, and
// what answers it.
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
    int listener;          // the notification descriptor it came from and is answered on
    uint64_t id;           // the kernel's name for it
    pid_t caller;          // the thread that asked
    uint32_t architecture; // whose table the call's number is from, see linux/audit.h
    int call;              // number of the system call
    std::array<uint64_t, 6> arguments;

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

// What answers calls on nodes of its own.
struct request_taker {
    virtual ~request_taker() = default;

    // The ioctl request numbers that the kernel is to stop for it.
    virtual std::span<const uint32_t> stopped_ioctls() const {
        return {};
    }
    // Whether an open descriptor that has this status (fstat(2)) is one of its nodes.
    virtual bool owns(const struct stat &node) const {
        (void)node;
        return false;
    }
    // A stopped call on one of its nodes. It must be answered once, now or later: the caller is
    // stopped until then.
    virtual void take_request(const request &asked);
};

// Copies between the board and `bytes` at an address in the caller's memory. False when the caller
// has no such memory or has gone; the call is then to be refused with EFAULT.
//
// A caller that has been killed leaves its number to another process only after all other numbers
// had their turn. So what is read at once after the call has arrived, or after `is_waiting`, is
// the caller's; before anything is written there the kernel is asked in any case.
bool read_memory(const request &asked, uint64_t address, void *to, size_t bytes);
bool write_memory(const request &asked, uint64_t address, const void *from, size_t bytes);

// Up to `bytes` bytes from an address on, as many as the caller has there. Returns how many.
size_t read_up_to(const request &asked, uint64_t address, void *to, size_t bytes);

// Lets the call return `value`, or -1 with errno `error`. A caller that was killed meanwhile is no
// error: there is nobody left to answer.
void answer(const request &asked, int64_t value);
void refuse(const request &asked, int error);
// Lets the kernel carry out the call as if the board had not seen it.
void pass_on(const request &asked);

} // namespace simulator
