#include "simulator/own_time/tick.h"

namespace simulator {

sigset_t tick_signal() {
    sigset_t signal;
    (void)sigemptyset(&signal);
    (void)sigaddset(&signal, SIGRTMAX);
    return signal;
}

tick_window::tick_window() {
    (void)sigprocmask(SIG_UNBLOCK, &signal, nullptr);
}

tick_window::~tick_window() {
    (void)sigprocmask(SIG_BLOCK, &signal, nullptr);
}

} // namespace simulator
