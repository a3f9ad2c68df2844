#include "results/reading/lines/log_time.h"

#include <chrono>

#include "results/reading/lines/text_parts.h"

namespace {

// Takes "01:30:51" and a fraction.
bool take_time_of_day(std::string_view &rest, int64_t &time_ms) {
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    if (!take_digits(rest, 2, hour) || !take(rest, ':') || !take_digits(rest, 2, minute) ||
        !take(rest, ':') || !take_digits(rest, 2, second))
        return false;
    time_ms = ((int64_t{hour} * 60 + minute) * 60 + second) * MS_PER_S;
    if (!take_any(rest, ".,"))
        return true;
    for (int64_t weight = 100; !rest.empty() && is_digit(rest[0]); weight /= 10) {
        time_ms += (rest[0] - '0') * weight;
        rest.remove_prefix(1);
    }
    return true;
}

// Takes "Z", "+01:00" or "+0100"; a time without a zone counts as UTC.
bool take_zone(std::string_view &rest, int64_t &time_ms) {
    if (rest.empty() || take(rest, 'Z') || rest[0] == ' ')
        return true;
    const int32_t sign = rest[0] == '-' ? -1 : 1;
    int32_t hours = 0;
    int32_t minutes = 0;
    if (!take_any(rest, "+-") || !take_digits(rest, 2, hours))
        return false;
    (void)take(rest, ':');
    if (!take_digits(rest, 2, minutes))
        return false;
    time_ms -= sign * (int64_t{hours} * 60 + minutes) * 60 * MS_PER_S;
    return true;
}

} // namespace

int64_t ms_of_date(int32_t year, int32_t month, int32_t day) {
    using namespace std::chrono;
    const sys_days date = std::chrono::year(year) / month / day;
    return int64_t{date.time_since_epoch().count()} * 24 * 3600 * MS_PER_S;
}

bool take_iso_time(std::string_view &rest, int64_t &time_ms) {
    int32_t year = 0;
    int32_t month = 0;
    int32_t day = 0;
    int64_t of_day = 0;
    std::string_view text = rest;
    if (!take_digits(text, 4, year) || !take(text, '-') || !take_digits(text, 2, month) ||
        !take(text, '-') || !take_digits(text, 2, day) || !take_any(text, "T ") ||
        !take_time_of_day(text, of_day) || !take_zone(text, of_day) || !take(text, ' '))
        return false;
    time_ms = ms_of_date(year, month, day) + of_day;
    rest = text;
    return true;
}

bool take_traditional_time(std::string_view &rest, int32_t &month, int32_t &day, int64_t &of_day) {
    constexpr std::string_view MONTHS = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t at = MONTHS.find(rest.substr(0, 3));
    std::string_view text = rest;
    if (rest.size() < 16 || at % 3 != 0 || at == std::string_view::npos || rest[3] != ' ')
        return false;
    month = static_cast<int32_t>(at / 3) + 1;
    text.remove_prefix(4);
    if (!(take(text, ' ') ? take_digits(text, 1, day) : take_digits(text, 2, day)) ||
        !take(text, ' ') || !take_time_of_day(text, of_day) || !take(text, ' '))
        return false;
    rest = text;
    return true;
}

bool take_priority(std::string_view &rest) {
    if (!rest.starts_with('<') || rest.size() < 3 || !is_digit(rest[1]))
        return false;
    const size_t end = rest.find('>');
    if (end == std::string_view::npos || end > 4)
        return false;
    rest.remove_prefix(end + 1);
    return true;
}

int64_t time_of_line(std::string_view line, int32_t year) {
    (void)take_priority(line);
    if (line.starts_with("1 "))
        line.remove_prefix(2);
    int64_t time_ms = NO_TIME;
    int32_t month = 0;
    int32_t day = 0;
    int64_t of_day = 0;
    if (take_iso_time(line, time_ms))
        return time_ms;
    if (!take_traditional_time(line, month, day, of_day))
        return NO_TIME;
    return ms_of_date(year, month, day) + of_day;
}
