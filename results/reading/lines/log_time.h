// The times at the start of log lines, in the forms that rsyslog, busybox, journalctl and hk_board
// write.

#pragma once

#include <cstdint>
#include <string_view>

constexpr int64_t NO_TIME = INT64_MIN;
constexpr int64_t MS_PER_S = 1000;

// The date in milliseconds since 1970.
int64_t ms_of_date(int32_t year, int32_t month, int32_t day);

// Takes "2026-11-22T01:30:51+00:00", or with a blank between as hk_board writes it, and the blank
// that follows.
bool take_iso_time(std::string_view &rest, int64_t &time_ms);

// Takes "Nov 22 01:30:51" and the blank that follows.
bool take_traditional_time(std::string_view &rest, int32_t &month, int32_t &day, int64_t &of_day);

// Takes "<14>", the priority that a message has on its way.
bool take_priority(std::string_view &rest);

// Reads the time at the start of a line; NO_TIME if it has none.
int64_t time_of_line(std::string_view line, int32_t year);
