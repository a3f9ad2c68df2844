#include "simulator/requests/request.h"

#include "simulator/requests/notification.h"

#include <algorithm>
#include <iterator>
#include <sys/uio.h>

namespace simulator {

namespace {

iovec area(uint64_t address, size_t bytes) {
    return {reinterpret_cast<void *>(static_cast<uintptr_t>(address)), bytes};
}

} // namespace

void request_taker::take_request(const request &asked) {
    refuse(asked, ENOTTY);
}

bool read_memory(const request &asked, uint64_t address, void *to, size_t bytes) {
    const iovec here{to, bytes};
    const iovec there = area(address, bytes);
    return process_vm_readv(asked.caller, &here, 1, &there, 1, 0) == static_cast<ssize_t>(bytes);
}

bool write_memory(const request &asked, uint64_t address, const void *from, size_t bytes) {
    const iovec here{const_cast<void *>(from), bytes};
    const iovec there = area(address, bytes);
    return is_still_waiting(asked) &&
           process_vm_writev(asked.caller, &here, 1, &there, 1, 0) == static_cast<ssize_t>(bytes);
}

size_t read_up_to(const request &asked, uint64_t address, void *to, size_t bytes) {
    constexpr uint64_t PAGE = 4096; // a transfer stops at an area that it cannot read whole
    const uint64_t first = std::min<uint64_t>(bytes, PAGE - address % PAGE);
    const iovec here{to, bytes};
    const iovec there[] = {area(address, first), area(address + first, bytes - first)};
    const ssize_t got = process_vm_readv(asked.caller, &here, 1, there, std::size(there), 0);
    return got > 0 ? static_cast<size_t>(got) : 0;
}

void answer(const request &asked, int64_t value) {
    respond(asked, value, 0, 0);
}

void refuse(const request &asked, int error) {
    respond(asked, 0, error, 0);
}

void pass_on(const request &asked) {
    respond(asked, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE);
}

} // namespace simulator
