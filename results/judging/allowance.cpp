#include "results/judging/allowance.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "supervisor/lists/counter_meanings.h"
#include "supervisor/lists/results_rows.h"

namespace {

constexpr int64_t HOUR_MS = 3600 * int64_t{1000};

[[noreturn]] void refuse_rule(const std::string &rule, const std::string &why) {
    std::string text = "--allow '";
    throw std::invalid_argument(text.append(rule).append("': ").append(why));
}

bool is_test(std::string_view name) {
    const auto is_meant = [name](const counter_meaning &row) { return name == row.test; };
    if (std::ranges::any_of(COUNTER_MEANINGS, is_meant))
        return true;
    const std::string word = std::string(" ").append(name).append(" ");
    return std::ranges::any_of(RESULTS_ROWS, [&word](const line_row &row) {
        const std::string_view format = row.format;
        return format.substr(0, format.find(" errors")).find(word) != std::string_view::npos;
    });
}

} // namespace

uint64_t allowance::limit(int64_t run_ms) const {
    const auto hours = static_cast<uint64_t>(std::max(run_ms - 1, int64_t{0}) / HOUR_MS + 1);
    return is_per_hour ? count * hours : count;
}

allowance read_allowance(const std::string &rule) {
    allowance read = {.rule = rule, .device = {}, .test = {}};
    const size_t colon = rule.find(':');
    const size_t most = rule.find("<=");
    if (colon == std::string::npos || most != colon + 2 || rule[colon + 1] < '1' ||
        rule[colon + 1] > '3')
        refuse_rule(rule,
                    "a rule is TEST:COUNTER<=NUMBER or TEST:COUNTER<=NUMBER/h, with a counter from "
                    "1 to 3 as in 'consume:3<=10/h'");
    read.counter = static_cast<size_t>(rule[colon + 1] - '1');
    read.test = rule.substr(0, colon);
    if (const size_t blank = read.test.rfind(' '); blank != std::string::npos) {
        read.device = read.test.substr(0, blank);
        read.test.erase(0, blank + 1);
    }
    if (!is_test(read.test) && !is_test(read.device))
        refuse_rule(rule, std::string("no line of a results list has the name ").append(read.test));
    const char *last = rule.data() + rule.size();
    const auto [after, fault] = std::from_chars(rule.data() + most + 2, last, read.count);
    const std::string_view unit(after, static_cast<size_t>(last - after));
    if (fault != std::errc{} || !(unit.empty() || unit == "/h"))
        refuse_rule(rule, "after <= comes a number, and /h for each hour");
    read.is_per_hour = !unit.empty();
    return read;
}

bool applies(const allowance &rule, std::string_view list_name, std::string_view test,
             size_t counter) {
    if (rule.counter != counter)
        return false;
    const size_t blank = list_name.find(' ');
    const std::string_view first = list_name.substr(0, blank);
    const std::string_view second =
        blank != std::string_view::npos ? list_name.substr(blank + 1) : "";
    const bool is_test = rule.test == first || rule.test == second || rule.test == test;
    return is_test && (rule.device.empty() || rule.device == first || rule.device == second);
}
