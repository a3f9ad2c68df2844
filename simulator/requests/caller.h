// What the board knows about the caller of a stopped call, mostly from /proc/PID, see proc(5).
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request.h"
#include "simulator/requests/stopped_calls.h"

#include <optional>
#include <string>

namespace simulator {

// What a descriptor of the caller refers to. None if the caller has no such descriptor.
std::optional<struct stat> status_of(const request &asked, int descriptor);

// How it was opened (O_RDONLY, O_WRONLY or both).
struct descriptor_access {
    bool is_readable;
    bool is_writable;
};
descriptor_access access_of(const request &asked, int descriptor);

// True if O_NONBLOCK is set now.
bool is_nonblocking(const request &asked, int descriptor);

// True if execve(2) closes it.
bool is_closed_on_execute(const request &asked, int descriptor);

// The caller's process, and whether it has other threads.
pid_t process_of(const request &asked);
bool has_other_threads(const request &asked);

// What a path of the caller refers to. `directory` is one of its descriptors or AT_FDCWD. None if
// nothing exists there.
std::optional<struct stat> status_of_path(const request &asked, int directory, uint64_t path);

// What a call of open(2), openat(2) or creat(2) opens; none for another call.
struct opening {
    int directory; // a descriptor of the caller, or AT_FDCWD
    uint64_t path; // in the caller's memory
    int flags;
};
std::optional<opening> opening_of(const request &asked);

// A free number, at least `least`, for a port's descriptor: the lowest free one if that is 0, 1 or
// 2, else a high one. -1 if none is left.
int free_number(const request &asked, const port_descriptors &numbers, int least);

// A copy of the caller's descriptor in the board; none if it is gone.
unique_fd copy_descriptor(const request &asked, int descriptor);

// True if a pending signal would interrupt the call in the kernel: one that the caller handles, or
// one that stops or ends it. `blocked` signals do not; without it, those that the caller blocks.
// `awaited` signals do in any case, see sigtimedwait(2).
bool is_interrupted(const request &asked, std::optional<uint64_t> blocked = std::nullopt,
                    uint64_t awaited = 0);

// True if one of its pending signals has a handler.
bool has_handled_signal(const request &asked);

// True if the caller is being killed: its calls end without an answer.
bool is_killed(const request &asked);

// The flags of a call of clone(2) or clone3(2), which has them in memory; 0 for another call.
uint64_t flags_of_clone(const request &asked);

// Ends the caller's process.
void end_caller(const request &asked);

} // namespace simulator
