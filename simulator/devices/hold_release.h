// Releases held tests. hk_stress starts some of its tests held and never releases them; what they
// do shows on the board when another process of it clears the hold words in the run's segment of
// shared memory, as a tool of the real board would.
#pragma once

#include "simulator/devices/device_set.h"

namespace simulator {

struct hold_release final : device {
    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    int32_t *words = nullptr; // of the segment; null until there is one
    int64_t next_look_us = NEVER;
};

bool release_held_tests(device_set &devices, const char *); // --release

} // namespace simulator
