#include "simulator/devices/presence_faults.h"

#include "simulator/time/clock.h"

#include <algorithm>
#include <iterator>

namespace simulator {

bool presence_faults::take(const fault &wanted, fault_id id, std::string_view part) {
    if (wanted.kind->id != id || wanted.target != part)
        return false;
    faults.push_back(wanted);
    next_look = 0;
    return true;
}

bool presence_faults::has_changed(int64_t now) {
    std::vector<const fault *> active;
    next_look = NEVER;
    for (const fault &each : faults) {
        next_look = std::min(next_look, each.next_change(now));
        if (!each.is_active(now))
            continue;
        active.push_back(&each);
        if (counts && std::ranges::find(present, &each) == present.end())
            each.count_strike();
    }
    std::swap(present, active);
    return present != active;
}

void presence_faults::count_present() const {
    for (const fault *each : present)
        each->count_strike();
}

} // namespace simulator
