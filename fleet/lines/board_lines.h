// The lines of many simulated boards, made with the program's own line table.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "runtime/record.h"

constexpr TestRecord record_of(record_letter letter, int32_t unit, int32_t kind_code) {
    TestRecord record = {};
    record.test_letter = static_cast<int32_t>(letter);
    record.unit = unit;
    record.kind_code = kind_code;
    return record;
}

// The record's line, without a line break.
std::string line_of(const TestRecord &record);

// The lines of a board's list number `list`, from 1 on, a second's worth of work for each.
std::vector<std::string> list_of(int32_t list, int32_t errors);

// "2026-11-21T05:00:01.123456+00:00 rack7-03 Stress 020000000102 : "
std::string head_of(int32_t board, std::chrono::system_clock::time_point when);
