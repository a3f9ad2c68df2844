// Makes the kernel stop the ioctl requests that the board's devices answer, and no other call.
#pragma once

#include "simulator/base/unique_fd.h"

namespace simulator {

// Installs the filter in the calling process; everything it executes or forks has it too. An
// emulator started afterwards is the caller as far as the kernel is concerned, so a program for
// another processor works as well. Returns the notification descriptor, or none with errno set.
unique_fd install_request_filter();

// Passes a descriptor over a connected Unix socket. `receive_descriptor` returns none when the
// other side has closed without sending one.
bool send_descriptor(int socket, int descriptor);
unique_fd receive_descriptor(int socket);

} // namespace simulator
