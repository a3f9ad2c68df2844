// Makes the kernel stop the calls that the board answers, and no other call.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/stopped_calls.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace simulator {

// Calls made through another processor's table, or through another mode of this one, have other
// numbers and structures. All of them are stopped, and the board ends their caller.
#if defined(__x86_64__)
constexpr uint32_t FIRST_FOREIGN_CALL = 0x40000000; // x32
#endif

struct filter_rules {
    std::vector<uint32_t> ioctls;          // request numbers, stopped on every descriptor
    std::optional<port_descriptors> ports; // none: the board has no port
    bool own_time = false;                 // the calls of timed_calls.h too
};

// With the rules for the board's own time, also makes the addresses of everything it executes the
// same in each run.
//
// Installs the filter in the calling process; everything it executes or forks has it too. An
// emulator started afterwards is the caller as far as the kernel is concerned, so a program for
// another processor works as well. Returns the notification descriptor, or none with errno set.
unique_fd install_request_filter(const filter_rules &rules);

// Whether a stopped call came through this processor's own table.
bool is_native_call(uint32_t architecture, int number);

} // namespace simulator
