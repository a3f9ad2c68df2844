// What the operator allows: so many errors of a counter, in total or in each hour.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct allowance {
    std::string rule;   // as it was given
    std::string device; // "sp1"; empty: every device
    std::string test;   // the word of the line, "consume", or the name of the test, "receiver"
    size_t counter = 0; // 0 to 2, in the order of the line
    uint64_t count = 0;
    bool is_per_hour = false;

    // The most errors that a run of this length may have; an hour that has begun counts.
    uint64_t limit(int64_t run_ms) const;
};

// Reads "consume:3<=10/h", "sp1 consume:3<=10" or "receiver:3<=10". Throws std::invalid_argument
// with what is wrong.
allowance read_allowance(const std::string &rule);

// Returns true if the rule is for the counter of the record that the list calls "sp1 consume" and
// the tables call "receiver".
bool applies(const allowance &rule, std::string_view list_name, std::string_view test,
             size_t counter);
