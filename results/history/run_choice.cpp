#include "results/history/run_choice.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "results/reading/rows/row_reader.h"

namespace {

constexpr uint32_t HALF_RANGE = uint32_t{1} << 31;
constexpr uint64_t NO_DISTANCE = std::numeric_limits<uint64_t>::max();

// A counter never falls, but starts again at 0 after 2^32. A lower value is such a wrap if the
// counter could have come that far at eight times its pace up to now.
bool is_wrap(const run_history &run, uint64_t moved, uint32_t delta, int64_t interval_ms) {
    constexpr uint64_t ALWAYS_POSSIBLE = uint64_t{1} << 24;
    constexpr uint32_t POSSIBLE_AT_FIRST = uint32_t{1} << 30; // no pace is known
    if (run.clock_ms == 0)
        return delta <= POSSIBLE_AT_FIRST;
    const double pace = static_cast<double>(moved) / static_cast<double>(run.clock_ms);
    const double most = 8 * pace * static_cast<double>(std::max(interval_ms, int64_t{1000}));
    return delta < HALF_RANGE && (delta <= ALWAYS_POSSIBLE || delta <= most);
}

// A test writes its unit when it is at work.
bool is_same_test(const TestRecord &before, const TestRecord &now) {
    return before.test_letter == now.test_letter && before.kind_code == now.kind_code &&
           (before.unit == now.unit || before.unit == 0);
}

// Adds how far a counter has moved; the sum becomes NO_DISTANCE if it fell.
template <typename Moved>
void add_step(uint64_t &sum, const run_history &run, uint32_t before, uint32_t now,
              int64_t interval_ms, Moved moved) {
    const uint32_t delta = now - before;
    const bool is_possible = now >= before || is_wrap(run, moved(), delta, interval_ms);
    sum = is_possible && sum != NO_DISTANCE ? sum + delta : NO_DISTANCE;
}

uint64_t distance(const run_history &run, const record_history &record, const TestRecord &now,
                  int64_t interval_ms) {
    if (!is_same_test(record.newest, now))
        return NO_DISTANCE;
    const line_layout &layout = *record.layout;
    uint64_t sum = 0;
    for (size_t i = 0; i < layout.counts.size(); ++i)
        add_step(sum, run, word_of(record.newest, layout.counts[i]), word_of(now, layout.counts[i]),
                 interval_ms, [&] { return record.moved_since_first(i); });
    for (size_t i = 0; i < layout.error_count; ++i)
        add_step(sum, run, word_of(record.newest, layout.errors[i]), word_of(now, layout.errors[i]),
                 interval_ms, [&] { return record.error(i); });
    return sum;
}

int64_t interval_since(const run_history &run, const open_list &list) {
    return list.time_ms == NO_TIME || run.last_ms == NO_TIME ? 0 : list.time_ms - run.last_ms;
}

// How far the records have moved since the run's newest list, compared one to one; NO_DISTANCE if
// the list cannot follow it. The list may end too early.
uint64_t distance(const run_history &run, const open_list &list) {
    const int64_t interval_ms = interval_since(run, list);
    if (list.records.size() > run.records.size())
        return NO_DISTANCE;
    uint64_t sum = 0;
    for (size_t i = 0; i < list.records.size(); ++i) {
        const uint64_t step = distance(run, run.records[i], list.records[i], interval_ms);
        if (step == NO_DISTANCE)
            return NO_DISTANCE;
        sum += step;
    }
    return sum;
}

// Returns true if the list can follow the run's newest one after some of its lines were lost.
bool has_lost_lines(const run_history &run, const open_list &list) {
    const int64_t interval_ms = interval_since(run, list);
    size_t at = 0;
    for (const TestRecord &now : list.records) {
        while (at < run.records.size() &&
               distance(run, run.records[at], now, interval_ms) == NO_DISTANCE)
            ++at;
        if (at++ >= run.records.size())
            return false;
    }
    return list.records.size() < run.records.size();
}

// An empty or shorter list is no continuation.
uint64_t distance_of_whole(const run_history &run, const open_list &list) {
    return list.records.size() == run.records.size() ? distance(run, list) : NO_DISTANCE;
}

// The tests of lines count many times a second as long as they work; the others count in bursts.
bool is_steady(const record_history &record) {
    switch (record.layout->letter) {
    case record_letter::CROSSOVER:
    case record_letter::ECHO_BACK:
    case record_letter::RECEIVER:
    case record_letter::PRODUCER:
    case record_letter::FIO:
    case record_letter::SPI_FIO:
        return true;
    default:
        return false;
    }
}

// The second counts of the tests of lines: how far they have moved before the list and in it.
struct steady_counts {
    double before = 0;
    double step = 0;
    double last = 0; // as the newest list shows them
};

// Of a list that can follow the run.
steady_counts steady_counts_of(const run_history &run, const open_list &list) {
    steady_counts sum;
    for (size_t i = 0; i < list.records.size(); ++i) {
        const record_history &record = run.records[i];
        if (!is_steady(record))
            continue;
        const uint8_t word = record.layout->counts[1];
        const uint32_t before = word_of(record.newest, word);
        sum.before += static_cast<double>(record.moved_since_first(1));
        sum.step += static_cast<double>(word_of(list.records[i], word) - before);
        sum.last += before;
    }
    return sum;
}

// How far the counts should move in the interval, by their pace up to now; 0 if it is not known.
double expected_step(const run_history &run, const steady_counts &counts, int64_t interval_ms) {
    const auto run_ms = static_cast<double>(run.clock_ms);
    return run.clock_ms < SHORTEST_PERIOD_MS
               ? 0
               : counts.before / run_ms * static_cast<double>(interval_ms);
}

// Returns true if the counts have moved on since the run's newest list, and at its pace.
bool keeps_pace(const run_history &run, const open_list &list) {
    constexpr double LEAST = 16;
    const steady_counts counts = steady_counts_of(run, list);
    const double expected = expected_step(run, counts, interval_since(run, list));
    return expected >= LEAST && counts.step >= expected / 2 && counts.step <= expected * 2;
}

// Two runs of like pace whose lists come in turn look like one run that hardly moves in every
// second interval.
bool hesitates_again(run_history &run, const open_list &list) {
    constexpr double LEAST = 1;
    constexpr int64_t SAME_MS = 1500;
    const int64_t interval_ms = interval_since(run, list);
    const steady_counts counts = steady_counts_of(run, list);
    const double expected = expected_step(run, counts, interval_ms);
    if (expected < LEAST || counts.step >= expected / 4)
        return false;
    const int64_t now_ms = run.clock_ms + interval_ms;
    const int64_t before_ms = run.pauses.interval_ms;
    const int64_t pause_ms = run.pauses.last_ms == NO_TIME ? NO_TIME : now_ms - run.pauses.last_ms;
    run.pauses = {now_ms, pause_ms};
    // In a run that makes no progress one such interval follows another.
    return before_ms != NO_TIME && pause_ms > interval_ms &&
           std::abs(pause_ms - before_ms) <= SAME_MS;
}

// Two runs with lists of the same moments look like many: the lists of two runs are the end of one,
// and each begins with higher counters, by the same steps after the same times.
bool grows_again(board_history &board, const run_history &run, const open_list &list) {
    constexpr int64_t SAME_MS = 1500;
    if (!run.is_closed || distance_of_whole(run, list) == NO_DISTANCE)
        return false;
    const steady_counts counts = steady_counts_of(run, list);
    const growth before =
        std::exchange(board.after_end, growth{interval_since(run, list), counts.step});
    return before.interval_ms != NO_TIME && counts.step > counts.last / 16 &&
           std::abs(counts.step - before.step) < counts.step / 8 &&
           std::abs(interval_since(run, list) - before.interval_ms) <= SAME_MS;
}

bool is_after_a_gap(const run_history &run, const open_list &list) {
    const int64_t longest_ms = std::max(3 * run.period.value_ms(), 2 * LONGEST_PERIOD_MS);
    return interval_since(run, list) > longest_ms;
}

// The end of a run writes its list twice; then nothing of it follows, unless they were the lists of
// two runs.
bool is_over(const run_history &run, const open_list &list) {
    const bool is_of_another = run.pid != 0 && list.pid != 0 && run.pid != list.pid;
    return is_of_another || is_after_a_gap(run, list) ||
           (run.is_closed && interval_since(run, list) > CLOSING_MS &&
            !(distance_of_whole(run, list) != NO_DISTANCE && keeps_pace(run, list)));
}

// Returns true if a run before the newest one may still be writing lists.
bool may_be_alive(const run_history &run, const open_list &list) {
    const int64_t period_ms = run.period.value_ms();
    const int64_t limit_ms = period_ms != 0 ? period_ms + period_ms / 2 : LONGEST_PERIOD_MS;
    return !run.is_closed && interval_since(run, list) <= limit_ms && !run.records.empty() &&
           (run.pid == 0 || run.pid == list.pid);
}

size_t add_run(board_history &board) {
    board.runs.emplace_back();
    return board.runs.size() - 1;
}

size_t choose_for_damaged(board_history &board, open_list &list) {
    const size_t newest = board.runs.size() - 1;
    const run_history &run = board.runs[newest];
    const bool is_in_order = list.has_start && !is_over(run, list);
    if (is_in_order && distance(run, list) != NO_DISTANCE)
        return newest;
    if (is_over(run, list) || !(list.records.empty() || has_lost_lines(run, list)))
        return add_run(board);
    list.records.clear();
    return newest;
}

// Returns true if the list follows the older of two runs: the newer one not at all, much less
// closely, or less closely than its pace allows.
bool follows_older(const run_history &older, const open_list &list, uint64_t older_step,
                   uint64_t step) {
    constexpr uint64_t MUCH = 16;
    if (older_step == NO_DISTANCE)
        return false;
    return step == NO_DISTANCE || older_step < step / MUCH ||
           (older_step < step && keeps_pace(older, list));
}

struct older_run {
    size_t index = 0;
    uint64_t step = NO_DISTANCE; // since its newest list; NO_DISTANCE: there is no such run
};

// The run before the newest one that the list follows most closely.
older_run closest_older(const board_history &board, const open_list &list) {
    constexpr size_t RUNS_AT_ONCE = 16;
    older_run closest;
    const size_t newest = board.runs.size() - 1;
    for (size_t i = newest - std::min(newest, RUNS_AT_ONCE); i < newest; ++i) {
        const run_history &run = board.runs[i];
        const uint64_t step = may_be_alive(run, list) ? distance_of_whole(run, list) : NO_DISTANCE;
        if (step <= closest.step)
            closest = {i, step};
    }
    return closest;
}

// The newest run, unless the list follows one before it more closely.
size_t choose_for_whole(board_history &board, open_list &list) {
    const size_t newest = board.runs.size() - 1;
    run_history &run = board.runs[newest];
    const uint64_t step = is_over(run, list) ? NO_DISTANCE : distance_of_whole(run, list);
    const older_run closest = closest_older(board, list);
    run_history &older = board.runs[closest.index];
    if (follows_older(older, list, closest.step, step)) {
        run.is_ambiguous = older.is_ambiguous = true;
        return closest.index;
    }
    if (step != NO_DISTANCE) {
        run.is_ambiguous = run.is_ambiguous || hesitates_again(run, list);
        return newest;
    }
    if (!is_over(run, list) && has_lost_lines(run, list)) {
        list.is_damaged = true;
        list.records.clear();
        return newest;
    }
    run.is_ambiguous = run.is_ambiguous || grows_again(board, run, list);
    return add_run(board);
}

} // namespace

bool is_same(const run_history &run, std::span<const TestRecord> records) {
    return std::ranges::equal(
        run.records, records,
        [](const record_history &before, const TestRecord &now) {
            return memcmp(&before.newest, &now, sizeof now) == 0;
        });
}

size_t choose_run(board_history &board, open_list &list) {
    if (board.runs.empty())
        return add_run(board);
    return list.is_damaged ? choose_for_damaged(board, list) : choose_for_whole(board, list);
}
