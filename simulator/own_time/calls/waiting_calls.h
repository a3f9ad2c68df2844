// The calls that wait for a time, for a signal or for a child.
#pragma once

#include "simulator/own_time/processes.h"
#include "simulator/requests/held_calls.h"

#include <memory>

namespace simulator {

// nanosleep(2) and clock_nanosleep(2).
std::unique_ptr<stopped_call> make_sleep(const request &asked, thread &caller);

// pause(2), rt_sigsuspend(2) and rt_sigtimedwait(2).
std::unique_ptr<stopped_call> make_wait_for_signal(const request &asked);

// wait4(2) and waitid(2): held until the kernel would return, then left to the kernel.
std::unique_ptr<stopped_call> make_wait_for_child(const request &asked, const thread &caller,
                                                  process_table &processes);

// Whether ppoll(2), pselect(2) or epoll_pwait(2) has a mask of signals for the time of its wait.
bool gives_mask(const request &asked);

} // namespace simulator
