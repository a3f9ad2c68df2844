// Makes the kernel stop the calls that the board answers, and refuse those that mount.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/stopped_calls.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace simulator {

// Calls made through another processor's table, or through another mode of this one, have other
// numbers and structures. The kernel stops all of them, and the board ends their caller.
#if defined(__x86_64__)
constexpr uint32_t FIRST_FOREIGN_CALL = 0x40000000; // x32
#endif

struct filter_rules {
    std::vector<uint32_t> ioctls;          // request numbers, stopped on every descriptor
    std::optional<port_descriptors> ports; // none: the board has no port
    bool own_time = false;                 // the calls of timed_calls.h too
    bool process_starts = false;           // the calls that start a process
};

// Installs the filter in the calling process; everything it executes or forks has it too. For the
// kernel, an emulator started later is the caller, so a program for another processor works too.
// Returns the notification descriptor, or none with errno set.
// With the rules for the board's own time, everything it executes has the same addresses in each
// run.
unique_fd install_request_filter(const filter_rules &rules);

// True if a stopped call came through this processor's own table.
bool is_native_call(uint32_t architecture, int number);

} // namespace simulator
