// Computing costs nothing in the board's own time, except in the calls that stand for work: they
// take the time that the board's flash and memory would need.
//
// The first calls after each sleep are free. A program's start, which differs from one kind of
// binary to another (a dynamic one maps its libraries, an emulator its own), is covered by that.
#pragma once

#include "simulator/requests/request.h"

#include <cstdint>

namespace simulator {

constexpr int FREE_WORKS = 400; // between two sleeps

// Of one call, in microseconds, 0 to 1,000,000.
struct work_costs {
    int open_us = 250; // looks up a name in the flash's directory, and reads the file's first block
    int mmap_us = 2000; // a block of 64 KiB filled, compared and wiped
    int sync_us = 2000; // the battery-backed store; fsync(2) and fdatasync(2) too

    // 0 for a call that is no work.
    int64_t of(const request &asked) const;
};

// Changes the costs that a text names: "open=100,sync=5000". False after a message.
bool take_work_costs(work_costs &costs, const char *text);

} // namespace simulator
