// Passes a descriptor from one process to another over a connected Unix socket, see unix(7).
#pragma once

#include "simulator/base/unique_fd.h"

namespace simulator {

// False with errno set if the other side is gone.
bool send_descriptor(int socket, int descriptor);

// None if the other side has closed without sending one.
unique_fd receive_descriptor(int socket);

} // namespace simulator
