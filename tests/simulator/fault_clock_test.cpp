// When a fault is present: windows of time and random moments.
#include "simulator/faults/fault_clock.h"
#include "simulator/time/clock.h"

#include <gtest/gtest.h>
#include <vector>

namespace simulator {

namespace {

constexpr int64_t HOUR_US = 3600 * US_PER_SECOND;
constexpr int64_t STEP_US = 10 * US_PER_MS;

// The occasions, one every 10 ms, that are struck in a time.
std::vector<int64_t> struck(fault_clock clock, int64_t duration_us) {
    std::vector<int64_t> times;
    for (int64_t time = 0; time < duration_us; time += STEP_US)
        if (clock.strikes(time))
            times.push_back(time);
    return times;
}

fault_clock random_clock(double per_hour, uint64_t seed) {
    fault_clock clock;
    clock.set_rate(per_hour, seed);
    return clock;
}

TEST(FaultClock, without_times_is_always_there_and_never_changes) {
    const fault_clock clock;
    EXPECT_TRUE(clock.is_active(0));
    EXPECT_TRUE(clock.is_active(1000 * HOUR_US));
    EXPECT_EQ(clock.next_change(0), NEVER);
}

TEST(FaultClock, windows_hold_their_first_moment_and_not_their_last) {
    fault_clock clock;
    clock.add_window({1'500'000, 2'000'000});
    clock.add_window({5'000'000, NEVER});
    const struct {
        int64_t time_us;
        bool is_active;
        int64_t next_us;
    } moments[] = {
        {-1, false, 1'500'000},       {0, false, 1'500'000},        {1'499'999, false, 1'500'000},
        {1'500'000, true, 2'000'000}, {1'999'999, true, 2'000'000}, {2'000'000, false, 5'000'000},
        {5'000'000, true, NEVER},
    };
    for (const auto &[time_us, is_active, next_us] : moments) {
        EXPECT_EQ(clock.is_active(time_us), is_active) << time_us;
        EXPECT_EQ(clock.strikes(time_us), is_active) << time_us;
        EXPECT_EQ(clock.next_change(time_us), next_us) << time_us;
    }
}

TEST(FaultClock, a_rate_strikes_that_often_an_hour_and_as_often_in_each_run_with_its_seed) {
    const std::vector<int64_t> times = struck(random_clock(600, 1), HOUR_US);
    EXPECT_NEAR(static_cast<double>(times.size()), 600, 1);
    EXPECT_EQ(struck(random_clock(600, 1), HOUR_US), times);
    EXPECT_NE(struck(random_clock(600, 2), HOUR_US), times);
}

TEST(FaultClock, a_rate_strikes_in_its_window_only_and_keeps_no_moment_for_later) {
    fault_clock clock = random_clock(3600, 7);
    clock.add_window({10 * US_PER_SECOND, 20 * US_PER_SECOND});
    const std::vector<int64_t> times = struck(clock, 60 * US_PER_SECOND);
    ASSERT_FALSE(times.empty());
    EXPECT_NEAR(static_cast<double>(times.size()), 10, 1);
    EXPECT_GE(times.front(), 10 * US_PER_SECOND);
    EXPECT_LT(times.back(), 20 * US_PER_SECOND);
    EXPECT_TRUE(clock.strikes(19 * US_PER_SECOND));
    EXPECT_FALSE(clock.strikes(19 * US_PER_SECOND)) << "one moment, one strike";
}

TEST(FaultClock, a_random_state_lasts_a_second_and_the_changes_lead_from_one_to_the_next) {
    const fault_clock clock = random_clock(60, 3);
    int64_t active_us = 0;
    bool was_active = clock.is_active(0);
    for (int64_t time = 0; time < HOUR_US;) {
        const int64_t next = clock.next_change(time);
        ASSERT_GT(next, time);
        ASSERT_EQ(clock.is_active(next - 1), was_active) << "it changed in between, at " << next;
        active_us += was_active ? next - time : 0;
        was_active = clock.is_active(next);
        time = next;
    }
    EXPECT_NEAR(static_cast<double>(active_us), 60.0 * US_PER_SECOND, 3.0 * US_PER_SECOND);
}

} // namespace

} // namespace simulator
