// The faults of one part that are states: gone, read-only, full. The device looks when one of them
// begins or ends, and does what follows from it.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/time/clock.h"

#include <string_view>
#include <vector>

namespace simulator {

class presence_faults {
public:
    // Takes the fault if it is of that kind and that part. False when it is not.
    bool take(const fault &wanted, fault_id id, std::string_view part);

    // Whether a fault is present now and was not at the last call, or the other way round. Counts
    // each beginning as a strike.
    bool has_changed(int64_t now);
    bool counts = true; // false for all but one of the nodes of one part
    // Whether one was present at the last call of `has_changed`.
    bool is_present() const {
        return !present.empty();
    }
    // Of those present the one that was given first; only if there is one.
    const fault &first_present() const {
        return *present.front();
    }
    // When to call `has_changed` next.
    int64_t next_look_us() const {
        return next_look;
    }

private:
    std::vector<fault> faults;
    std::vector<const fault *> present;
    int64_t next_look = NEVER;
};

} // namespace simulator
