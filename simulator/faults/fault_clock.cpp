#include "simulator/faults/fault_clock.h"

#include "simulator/time/clock.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr int64_t STATE_US = US_PER_SECOND; // how long a random state lasts
constexpr double HOUR_US = 3600.0 * US_PER_SECOND;

// Mixes 64 bits so that neighbouring numbers give unrelated ones (the finalizer of splitmix64).
uint64_t mixed(uint64_t value) {
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

} // namespace

void fault_clock::add_window(const fault_window &added) {
    windows.push_back(added);
}

void fault_clock::set_rate(double per_hour, uint64_t wanted_seed) {
    period_us = std::max<int64_t>(1, static_cast<int64_t>(HOUR_US / per_hour));
    seed = wanted_seed;
}

bool fault_clock::is_in_window(int64_t time_us) const {
    return windows.empty() || std::ranges::any_of(
                                  windows,
                                  [&](const fault_window &window) {
                                      return window.from_us <= time_us && time_us < window.to_us;
                                  });
}

int64_t fault_clock::moment(int64_t period) const {
    const auto number = static_cast<uint64_t>(period);
    const uint64_t offset = mixed(seed ^ mixed(number)) % static_cast<uint64_t>(period_us);
    return period * period_us + static_cast<int64_t>(offset);
}

// The last random moment up to this time; negative if there is none.
int64_t fault_clock::last_moment(int64_t time_us) const {
    const int64_t period = time_us / period_us;
    if (moment(period) <= time_us)
        return moment(period);
    return period > 0 ? moment(period - 1) : -1;
}

bool fault_clock::is_active(int64_t time_us) const {
    const int64_t time = std::max<int64_t>(time_us, 0);
    if (period_us == 0)
        return is_in_window(time);
    const int64_t since = last_moment(time);
    return since >= 0 && time < since + STATE_US && is_in_window(since);
}

bool fault_clock::strikes(int64_t time_us) {
    const int64_t time = std::max<int64_t>(time_us, 0);
    if (period_us == 0 || !is_in_window(time))
        return is_in_window(time);
    const int64_t since = last_moment(time);
    if (since <= used_us || !is_in_window(since))
        return false;
    used_us = since;
    return true;
}

int64_t fault_clock::next_change(int64_t time_us) const {
    const int64_t time = std::max<int64_t>(time_us, 0);
    int64_t next = NEVER;
    const auto consider = [&](int64_t change) {
        if (change > time)
            next = std::min(next, change);
    };
    if (period_us != 0) {
        const int64_t period = time / period_us;
        consider(moment(period));
        consider(moment(period + 1));
        consider(std::max<int64_t>(last_moment(time), 0) + STATE_US);
        return next;
    }
    for (const fault_window &window : windows) {
        consider(window.from_us);
        consider(window.to_us);
    }
    return next;
}

} // namespace simulator
