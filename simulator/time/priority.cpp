#include "simulator/time/priority.h"

#include <sched.h>
#include <sys/resource.h>

namespace simulator {

namespace {

constexpr int RAISED_NICE = -10;

} // namespace

void raise_priority() {
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_FIFO);
    if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &lowest) == 0)
        return;
    const sched_param none{};
    if (sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none) == 0)
        (void)setpriority(PRIO_PROCESS, 0, RAISED_NICE);
}

} // namespace simulator
