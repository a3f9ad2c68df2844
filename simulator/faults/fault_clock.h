// Decides when one fault is present: in windows of time, at random moments, or both. Inside a
// window the fault strikes every occasion (a chunk, a reply); with a rate, only the first occasion
// after each random moment. A state (a cut wire, a missing node) with a rate lasts one second from
// each moment.
//
// The moments depend on the rate and the seed alone: each period of 3600 s / rate has one, anywhere
// in it. So a run can be repeated, and no moment has to be stored.
//
// All times are microseconds since the start of the run; a time before the start counts as 0.
#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

struct fault_window {
    int64_t from_us;
    int64_t to_us; // the first moment after it; NEVER (clock.h): no end
};

class fault_clock {
public:
    // Without windows the fault is present all the time.
    void add_window(const fault_window &added);
    // `per_hour` is above 0.
    void set_rate(double per_hour, uint64_t seed);
    bool has_window() const {
        return !windows.empty();
    }
    bool has_rate() const {
        return period_us != 0;
    }

    // True while a state is present.
    bool is_active(int64_t time_us) const;
    // True if the fault strikes an occasion at this time. Uses up the random moment.
    bool strikes(int64_t time_us);
    // The first time after this one at which `is_active` may change; NEVER if it does not.
    int64_t next_change(int64_t time_us) const;

private:
    bool is_in_window(int64_t time_us) const;
    int64_t moment(int64_t period) const; // in the period of that number, from 0
    int64_t last_moment(int64_t time_us) const;

    std::vector<fault_window> windows;
    int64_t period_us = 0; // 0: no random moments
    uint64_t seed = 0;
    int64_t used_us = -1; // the moment that struck last
};

} // namespace simulator
