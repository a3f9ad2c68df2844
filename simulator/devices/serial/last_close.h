// The last close of a port, whichever call brings it: close(2), dup2(2) over the descriptor,
// close_range(2), the end of the process, or execve(2) for a descriptor with O_CLOEXEC.
//
// As in the kernel (tty_port_close_start in drivers/tty/tty_port.c), the call returns or the
// process ends when the output has left, or after the port's closing_wait, 30 s unless TIOCSSERIAL
// has set another one. A signal ends the wait but not the close, and what has not left is lost; a
// process that is ending takes no signals. A process that a signal kills does not wait: that close
// is seen at the port's node alone, see serial_port.h.
//
// In the machine's time the end of a process and execve(2) are not stopped, see stopped_calls.h:
// these closes do not wait, and the port sends the rest.
#pragma once

#include "simulator/devices/serial/serial_port.h"
#include "simulator/requests/held_calls.h"
#include "simulator/requests/stopped_calls.h"

#include <memory>
#include <set>
#include <span>

namespace simulator {

struct last_closes {
    // The call as one that waits. Null if it is not the last close of a port with output.
    std::unique_ptr<stopped_call> make(const request &asked, call_kind kind,
                                       std::span<serial_port *const> ports);

private:
    std::set<pid_t> ending; // processes that the kernel may still be ending
};

} // namespace simulator
