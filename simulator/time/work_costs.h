// What computing costs in the board's own time. Nothing, but for the calls that stand for work:
// they take the time that the board's flash and memory would need.
//
// The first calls after each sleep are free. A program's start, which differs from one kind of
// binary to another (a dynamic one maps its libraries, an emulator its own), is covered by that.
#pragma once

#include "simulator/requests/request.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sys/mman.h>
#include <sys/syscall.h>

namespace simulator {

constexpr int FREE_WORKS = 400; // between two sleeps

struct work_cost {
    int call;
    int64_t cost_us;
};

constexpr work_cost WORK_COSTS[] = {
    {SYS_openat, 250}, // looks up a name in the flash's directory, and reads the file's first block
    {SYS_mmap, 2000},  // a block of 64 KiB filled, compared and wiped
    {SYS_sync, 2000},  // the battery-backed store
    {SYS_fsync, 2000}, {SYS_fdatasync, 2000},
#ifdef SYS_open
    {SYS_open, 250},   {SYS_creat, 250},
#endif
};

constexpr bool opens_file(int call) {
#ifdef SYS_open
    if (call == SYS_open || call == SYS_creat)
        return true;
#endif
    return call == SYS_openat;
}

// Addresses without memory, as an emulator keeps them free, are no work.
constexpr bool is_work(const request &asked) {
    return asked.call != SYS_mmap || asked.arguments[2] != PROT_NONE;
}

constexpr int64_t cost_of_work_us(int call) {
    const auto *found = std::ranges::find(WORK_COSTS, call, &work_cost::call);
    return found != std::end(WORK_COSTS) ? found->cost_us : 0;
}

} // namespace simulator
