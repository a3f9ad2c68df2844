// Reads, writes and requests on a port, as calls that may wait.
#pragma once

#include "simulator/devices/serial/serial_port.h"
#include "simulator/requests/held_calls.h"
#include "simulator/requests/stopped_calls.h"

#include <memory>

namespace simulator {

std::unique_ptr<stopped_call> make_transfer(const request &asked, call_kind kind,
                                            serial_port &port);

} // namespace simulator
