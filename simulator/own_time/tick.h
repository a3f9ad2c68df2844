// The scheduler's tick: a signal every few milliseconds of the machine's time. It ends the board's
// wait for a stopped call, so that the board looks at the thread that it waits for. It must end
// nothing else: a write to a pseudo-terminal, for instance, fails with EINTR although it need not
// wait. So it is blocked, but for those waits.
#pragma once

#include <csignal>

namespace simulator {

sigset_t tick_signal();

// The tick can come while it lives.
class tick_window {
public:
    tick_window();
    ~tick_window();
    tick_window(const tick_window &) = delete;
    tick_window &operator=(const tick_window &) = delete;

private:
    const sigset_t signal = tick_signal();
};

} // namespace simulator
