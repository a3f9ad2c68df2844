// epoll_wait(2), epoll_pwait(2) and epoll_pwait2(2): held until the set has an event or the time is
// up. The kernel then reports the events.
#pragma once

#include "simulator/requests/held_calls.h"

#include <memory>

namespace simulator {

std::unique_ptr<stopped_call> make_epoll_wait(const request &asked);

} // namespace simulator
