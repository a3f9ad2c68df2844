#include "results/history/run_history.h"

#include <algorithm>

#include "results/history/run_choice.h"

namespace {

constexpr uint64_t WRAP = uint64_t{1} << 32;

// `may_be_end`: a stop adds a list and kills the tests, and the next list can be that of the end.
void note_progress(record_history &record, bool has_moved, bool may_be_end, const run_history &run,
                   int64_t previous_ms) {
    if (has_moved || record.count(1) == 0)
        record.moved_at_ms = run.clock_ms;
    const int64_t rest_ms = run.clock_ms - record.moved_at_ms;
    if (rest_ms <= record.longest_rest_ms || may_be_end)
        return;
    if (record.longest_rest_ms == 0 || run.clock_ms - previous_ms == rest_ms)
        record.rest_since_ms = run.last_ms - rest_ms;
    record.longest_rest_ms = rest_ms;
}

// The memory test counts a block in its first count when it maps it, and in its second when it has
// filled it: a slow block moves only the first.
bool has_progress(const line_layout &layout, const TestRecord &before, const TestRecord &now) {
    const auto has_moved = [&](uint8_t word) {
        return word_of(before, word) != word_of(now, word);
    };
    return has_moved(layout.counts[1]) ||
           (layout.letter == record_letter::DRAM && has_moved(layout.counts[0]));
}

void count_wraps(record_history &record, const line_layout &layout, const TestRecord &now) {
    for (size_t i = 0; i < 2; ++i)
        if (word_of(now, layout.counts[i]) < word_of(record.newest, layout.counts[i]))
            ++record.count_wraps[i];
    for (size_t i = 0; i < layout.error_count; ++i)
        if (word_of(now, layout.errors[i]) < word_of(record.newest, layout.errors[i]))
            ++record.error_wraps[i];
}

void note_errors(record_history &record, const line_layout &layout, int64_t time_ms) {
    if (record.is_clean())
        return;
    for (size_t i = 0; i < layout.error_count; ++i)
        if (record.error_seen_ms[i] == NO_TIME && record.error(i) != 0)
            record.error_seen_ms[i] = time_ms;
}

record_history first_look(const TestRecord &now, const line_layout &layout, int64_t time_ms) {
    record_history record;
    record.newest = now;
    record.layout = &layout;
    record.start = line_start(now);
    record.first_counts = {word_of(now, layout.counts[0]), word_of(now, layout.counts[1])};
    note_errors(record, layout, time_ms);
    return record;
}

void take_record(record_history &record, const TestRecord &now, const run_history &run,
                 int64_t previous_clock_ms, bool may_be_end) {
    const line_layout &layout = *record.layout;
    const bool has_moved = has_progress(layout, record.newest, now);
    count_wraps(record, layout, now);
    if (record.newest.unit != now.unit)
        record.start = line_start(now);
    record.newest = now;
    note_errors(record, layout, run.last_ms);
    note_progress(record, has_moved, may_be_end, run, previous_clock_ms);
}

// A log without times: the shortest period between two lists, unless they are the same.
int64_t time_of(const run_history &run, const open_list &list) {
    if (list.time_ms != NO_TIME || run.last_ms == NO_TIME)
        return list.time_ms != NO_TIME ? list.time_ms : 0;
    return run.last_ms + (is_same(run, list.records) ? 0 : SHORTEST_PERIOD_MS);
}

void take_time(run_history &run, const open_list &list) {
    const int64_t now_ms = time_of(run, list);
    if (run.first_ms == NO_TIME) {
        run.first_ms = run.last_ms = now_ms;
        return;
    }
    const int64_t interval_ms = std::max(now_ms - run.last_ms, int64_t{0});
    run.is_closed = interval_ms < CLOSING_MS && is_same(run, list.records);
    run.clock_ms += interval_ms;
    run.period.add_interval(interval_ms);
    run.last_ms = now_ms;
}

} // namespace

void take_list(run_history &run, const open_list &list) {
    const int64_t previous_clock_ms = run.clock_ms;
    const bool may_be_end = run.period.is_added && is_same(run, list.records);
    take_time(run, list);
    if (run.pid == 0)
        run.pid = list.pid;
    if (list.is_damaged)
        ++run.cut_lists;
    else
        ++run.lists;
    if (run.records.empty())
        run.records.reserve(list.records.size());
    for (size_t i = 0; i < list.records.size(); ++i)
        if (i < run.records.size())
            take_record(run.records[i], list.records[i], run, previous_clock_ms, may_be_end);
        else
            run.records.push_back(
                first_look(list.records[i], layout_of(list.records[i].test_letter), run.last_ms));
}

run_history run_of(const status_report_lines &report) {
    run_history run;
    run.is_report = true;
    run.cut_lists = report.is_cut ? 1 : 0;
    for (const report_line &line : report.lines) {
        run.records.push_back(
            first_look(line.record, report_layout_of(line.record.test_letter), NO_TIME));
        run.records.back().has_bad_blocks = line.bit_rate != 0;
    }
    return run;
}

bool is_a_stall(const run_history &run, int64_t rest_ms) {
    constexpr int64_t ROUNDING_MS = 1500; // times may be whole seconds
    const int64_t period_ms = run.period.value_ms();
    return period_ms != 0 && rest_ms >= std::max(period_ms, SHORTEST_PERIOD_MS) - ROUNDING_MS;
}

uint64_t record_history::count(size_t number) const {
    return count_wraps[number] * WRAP + word_of(newest, layout->counts[number]);
}

uint64_t record_history::error(size_t number) const {
    return number < layout->error_count
               ? error_wraps[number] * WRAP + word_of(newest, layout->errors[number])
               : 0;
}

uint64_t record_history::moved_since_first(size_t number) const {
    return count(number) - first_counts[number];
}

// The vote of Boyer and Moore. Times of a log are whole seconds at worst.
void log_period::add_interval(int64_t interval_ms) {
    constexpr int64_t SAME_MS = 1500;
    if (interval_ms < SHORTEST_PERIOD_MS - SAME_MS) { // one of the two is an added list
        pending_ms = 0;
        is_added = true;
        return;
    }
    is_added = false;
    if (const int64_t vote_ms = pending_ms; vote_ms != 0) {
        if (votes == 0)
            ms = vote_ms;
        votes += std::abs(vote_ms - ms) <= SAME_MS ? 1 : -1;
    }
    pending_ms = interval_ms;
}

int64_t log_period::value_ms() const {
    return ms != 0 ? ms : pending_ms;
}
