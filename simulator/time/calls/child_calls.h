// wait4(2) and waitid(2): held until the kernel would return, then left to the kernel.
#pragma once

#include "simulator/requests/held_calls.h"
#include "simulator/time/processes.h"

#include <memory>

namespace simulator {

std::unique_ptr<stopped_call> make_wait_for_child(const request &asked, const thread &caller,
                                                  process_table &processes);

} // namespace simulator
