#include "results/output/series.h"

namespace {

constexpr size_t LISTS_MAX = 1500;       // of a run, as many as a plot can show
constexpr size_t POINTS_MAX = 1'500'000; // of all, 24 MB

// Keeps every second list, and the first.
size_t thin(run_series &series) {
    const size_t before = series.times_ms.size();
    const size_t kept = (before + 1) / 2;
    for (size_t i = 1; i < kept; ++i) {
        series.times_ms[i] = series.times_ms[2 * i];
        for (std::vector<run_series::point> &record : series.records)
            record[i] = record[2 * i];
    }
    series.times_ms.resize(kept);
    for (std::vector<run_series::point> &record : series.records)
        record.resize(kept);
    series.stride *= 2;
    return (before - kept) * series.records.size();
}

} // namespace

void series_keeper::thin_all() {
    for (auto &[board, runs] : kept)
        for (run_series &series : runs)
            points -= thin(series);
}

void series_keeper::list_taken(const board_history &board, size_t run, const open_list &) {
    const run_history &history = board.runs[run];
    std::vector<run_series> &runs = kept[&board];
    if (runs.size() <= run)
        runs.resize(run + 1);
    run_series &series = runs[run];
    if (series.records.size() < history.records.size())
        series.records.resize(history.records.size(),
                              std::vector<run_series::point>(series.times_ms.size()));
    if (++series.skipped < series.stride)
        return;
    series.skipped = 0;
    series.times_ms.push_back(history.last_ms);
    for (size_t i = 0; i < history.records.size(); ++i) {
        const record_history &record = history.records[i];
        series.records[i].push_back(
            {record.count(1), record.error(0) + record.error(1) + record.error(2)});
    }
    points += history.records.size();
    if (series.times_ms.size() > LISTS_MAX)
        points -= thin(series);
    while (points > POINTS_MAX)
        thin_all();
}

const run_series *series_keeper::of(const board_history &board, size_t run) const {
    const auto found = kept.find(&board);
    const bool is_kept = found != kept.end() && run < found->second.size();
    return is_kept ? &found->second[run] : nullptr;
}
