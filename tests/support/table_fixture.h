// Gives each case a new status table, shared with the test processes that it starts, and fresh
// supervisor counters. Kills and reaps these processes at the end of the case.

#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <sys/types.h>

#include "supervisor/status_table.h"

class TableTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static TestRecord &record(int index) {
        return status_table->records[static_cast<size_t>(index)];
    }
};

// Waits, in steps of a millisecond, until the claim holds; false after `seconds`.
template <typename Claim>
bool wait_until(Claim claim, int seconds = 20);

// Sleeps a millisecond; the step of wait_until.
void wait_a_moment();

template <typename Claim>
bool wait_until(Claim claim, int seconds) {
    for (int step = 0; step < seconds * 1000; ++step) {
        if (claim())
            return true;
        wait_a_moment();
    }
    return claim();
}
