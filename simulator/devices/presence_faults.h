// The faults of one part that are states: gone, read-only, full. The device checks when one of them
// begins or ends, and acts on the change.
#pragma once

#include "simulator/faults/fault.h"
#include "simulator/time/clock.h"

#include <string_view>
#include <vector>

namespace simulator {

class presence_faults {
public:
    // Takes the fault if it has that kind and part, else returns false.
    bool take(const fault &wanted, fault_id id, std::string_view part);

    // True if presence has changed since the last call. Counts each beginning as a strike.
    bool has_changed(int64_t now);
    // False for all but one of the nodes of one part, and for a device that counts itself.
    bool counts = true;
    void count_present() const;
    // True if a fault was present at the last call of `has_changed`.
    bool is_present() const {
        return !present.empty();
    }
    // The present fault that was given first. There must be one.
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
