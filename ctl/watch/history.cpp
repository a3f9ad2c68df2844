#include "ctl/watch/history.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char *UTF8_LEVELS[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char *ASCII_LEVELS[] = {"_", ".", ":", "-", "=", "+", "*", "#"};
constexpr size_t LEVELS = std::size(UTF8_LEVELS);
static_assert(LEVELS == std::size(ASCII_LEVELS));

void add_rate(record_history &record, double rate) {
    if (record.rates_known == RATES_KEPT)
        std::copy(record.rates.begin() + 1, record.rates.end(), record.rates.begin());
    else
        ++record.rates_known;
    record.rates[record.rates_known - 1] = rate;
}

// The difference is also right if the counter has wrapped meanwhile.
void take_in(record_history &record, const TestRecord &now, const counter_meaning &meaning,
             int64_t passed_ms) {
    const uint32_t count = work_count(now, meaning);
    const std::array<int32_t, 3> errors = {now.errors, now.errors2, now.errors3};
    if (passed_ms > 0)
        add_rate(record, static_cast<double>(count - record.count) * 1000.0 /
                             static_cast<double>(passed_ms));
    record.errors_moved = passed_ms > 0 && errors != record.errors;
    record.count = count;
    record.errors = errors;
}

} // namespace

void history::add(const stress_run &run, int64_t time_ms) {
    const int64_t passed_ms = last_ms == 0 ? 0 : std::max<int64_t>(time_ms - last_ms, 1);
    for (size_t index = 1; index < run.records_used; ++index)
        take_in(records[index], run.table().records[index], run.meaning_of(index), passed_ms);
    last_ms = time_ms;
}

uint32_t work_count(const TestRecord &record, const counter_meaning &meaning) {
    return meaning.read_count != nullptr ? record.read_count : record.write_count;
}

std::string sparkline(const record_history &of, size_t width, bool utf8) {
    const size_t shown = std::min(width, of.rates_known);
    const double *rates = of.rates.data() + of.rates_known - shown;
    const double highest = shown == 0 ? 0 : *std::max_element(rates, rates + shown);
    std::string line;
    for (size_t i = 0; i < shown; ++i) {
        const double part = highest > 0 ? rates[i] / highest : 0;
        const auto level = static_cast<size_t>(std::lround(part * (LEVELS - 1)));
        line += utf8 ? UTF8_LEVELS[level] : ASCII_LEVELS[level];
    }
    return line;
}
