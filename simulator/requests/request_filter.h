// Makes the kernel stop the calls that the board answers, and no other call.
#pragma once

#include "simulator/base/unique_fd.h"

#include <cstdint>
#include <span>

namespace simulator {

// Installs the filter for these ioctl request numbers in the calling process; everything it
// executes or forks has it too. An emulator started afterwards is the caller as far as the kernel
// is concerned, so a program for another processor works as well. Returns the notification
// descriptor, or none with errno set.
unique_fd install_request_filter(std::span<const uint32_t> stopped_ioctls);

} // namespace simulator
