#include "results/judging/verdict.h"

#include <algorithm>

#include "ctl/run/tests.h"
#include "ctl/text.h"
#include "results/judging/comparison.h"
#include "results/judging/places.h"
#include "results/judging/words.h"
#include "results/reading/rows/row_reader.h"

namespace {

constexpr std::array VERDICT_NAMES = {
    "not judged", "idle", "pass", "unexpected", "missing", "cut", "stalled", "ambiguous", "fail",
};
static_assert(VERDICT_NAMES.size() == static_cast<size_t>(verdict::FAIL) + 1);

constexpr double S_PER_HOUR = 3600;

constexpr std::array<const char *, 3> ERROR_FIELDS = {"errors", "errors2", "errors3"};

// The field of an error counter of the line, and what it counts.
size_t field_of(const line_layout &layout, size_t number) {
    return layout.errors[number] - offsetof(TestRecord, errors) / sizeof(int32_t);
}

const char *meaning_of(const counter_meaning &row, size_t field) {
    const std::array meanings = {row.errors, row.errors2, row.errors3};
    return meanings[field] != nullptr ? meanings[field] : "not used by this test";
}

// The error counters of the test that the line does not show, in words.
std::string hidden_errors(const record_verdict &judged) {
    const line_layout &layout = *judged.record->layout;
    std::string hidden;
    for (size_t number = 0; number < layout.error_count; ++number) {
        const size_t field = field_of(layout, number);
        const std::array meanings = {judged.meaning->errors, judged.meaning->errors2,
                                     judged.meaning->errors3};
        if (!layout.is_shown[number] && meanings[field] != nullptr)
            hidden.append(hidden.empty() ? "" : ", ").append(meanings[field]);
    }
    return hidden;
}

class run_judge {
public:
    run_judge(const run_history &judged, const judge_rules &with) : run(judged), rules(with) {}

    run_verdict judge() {
        run_verdict result = {.run = &run, .records = {}, .remarks = {}};
        for (size_t i = 0; i < run.records.size(); ++i)
            result.records.push_back(judge_record(i));
        if (rules.expected)
            compare_with_expected(result.records, *rules.expected, run.is_report);
        result.is = worst_of(result.records);
        note_lists(result);
        note_complaints(run, result.remarks);
        return result;
    }

private:
    record_verdict judge_record(size_t index) const;
    double per_hour(uint64_t count) const;
    void find_errors(record_verdict &judged) const;
    void name_errors(record_verdict &judged, size_t index) const;
    bool is_stalled(const record_history &record) const;
    verdict worst_of(const std::vector<record_verdict> &records) const;
    void note_lists(run_verdict &result) const;
    void note_report(run_verdict &result) const;

    const run_history &run;
    const judge_rules &rules;
};

// A run of minutes says nothing of an hour.
double run_judge::per_hour(uint64_t count) const {
    constexpr int64_t SHORTEST_MS = int64_t{10} * 60 * 1000;
    const double hours = static_cast<double>(run.clock_ms) / MS_PER_S / S_PER_HOUR;
    return run.clock_ms >= SHORTEST_MS ? static_cast<double>(count) / hours : 0;
}

void run_judge::find_errors(record_verdict &judged) const {
    const line_layout &layout = *judged.record->layout;
    for (size_t number = 0; number < layout.error_count; ++number) {
        const uint64_t count = judged.record->error(number);
        if (count == 0)
            continue;
        const size_t field = field_of(layout, number);
        moved_error error = {number, ERROR_FIELDS[field], meaning_of(*judged.meaning, field),
                             count,  per_hour(count),     judged.record->error_seen_ms[number],
                             {}};
        for (const allowance &rule : rules.allowed)
            if (applies(rule, judged.name, judged.test, number) &&
                count <= rule.limit(run.clock_ms))
                error.allowed_by = rule.rule;
        judged.errors.push_back(error);
    }
}

// Lists that a signal or the end adds do not show a stall: they come sooner than a log period.
bool run_judge::is_stalled(const record_history &record) const {
    return record.count(1) != 0 && is_a_stall(run, record.longest_rest_ms);
}

void run_judge::name_errors(record_verdict &judged, size_t index) const {
    judged.is = verdict::FAIL;
    judged.reasons = places_of(run, index);
    judged.samples = samples_of(*judged.record, *judged.meaning);
    if (judged.record->has_bad_blocks)
        judged.reasons.emplace_back("the bit rate of the report counts blocks that were not good");
}

record_verdict run_judge::judge_record(size_t index) const {
    const record_history &record = run.records[index];
    const bool is_after_fio = index > 0 && is_of(run.records[index - 1].newest, record_letter::FIO);
    record_verdict judged = {.name = printable_name(record.newest),
                             .option = {},
                             .record = &record,
                             .meaning = &::meaning_of(record.newest, is_after_fio),
                             .errors = {},
                             .reasons = {},
                             .samples = {}};
    judged.test = judged.meaning->test;
    if (judged.meaning->option != nullptr)
        judged.option = std::string("-").append(judged.meaning->option);
    if (run.clock_ms > 0)
        judged.per_second = static_cast<double>(record.moved_since_first(1)) * MS_PER_S /
                            static_cast<double>(run.clock_ms);
    find_errors(judged);
    const bool has_errors =
        record.has_bad_blocks || std::ranges::any_of(judged.errors, [](const moved_error &error) {
            return error.allowed_by.empty();
        });
    if (has_errors || !is_opened(run, index) || has_complaint(run, index))
        name_errors(judged, index);
    else if (record.count(1) == 0)
        judged.is = verdict::IDLE;
    else if (is_stalled(record) || has_given_up(run, record))
        judged.is = verdict::STALLED;
    else if (const std::string hidden = hidden_errors(judged); !hidden.empty()) {
        judged.is = verdict::NOT_JUDGED;
        judged.needs_log = true;
        judged.reasons.push_back(std::string("the report does not show: ").append(hidden));
    }
    if (judged.is == verdict::IDLE)
        judged.reasons.push_back(why_idle(record.newest, *judged.meaning));
    if (judged.is == verdict::STALLED)
        judged.reasons.push_back(why_stalled(run, record));
    return judged;
}

verdict run_judge::worst_of(const std::vector<record_verdict> &records) const {
    verdict worst = verdict::NOT_JUDGED;
    bool is_untested = records.empty();
    bool needs_log = run.is_report && !rules.expected; // other records may have no line
    for (const record_verdict &record : records) {
        worst = std::max(worst, record.is);
        is_untested = is_untested || (record.is == verdict::IDLE && record.is_expected);
        needs_log = needs_log || record.needs_log;
    }
    if (worst > verdict::PASS)
        return worst;
    return is_untested ? verdict::IDLE : needs_log ? verdict::NOT_JUDGED : worst;
}

void run_judge::note_report(run_verdict &result) const {
    if (run.cut_lists > 0) {
        result.is = std::max(result.is, verdict::CUT);
        result.remarks.emplace_back("its status report is not complete");
    }
    result.remarks.emplace_back(
        "known from its status report alone: this shows no stall, has no line for -E and -K, and "
        "lacks as many lines at its end as there are tests with two records (-E, -F)");
    if (result.is == verdict::NOT_JUDGED)
        result.remarks.emplace_back(rules.expected
                                        ? "the log shows the rest"
                                        : "nothing says which records there were: give the log, or "
                                          "the options of the run with --expect");
}

void run_judge::note_lists(run_verdict &result) const {
    if (run.is_report)
        return note_report(result);
    if (run.records.empty())
        result.remarks.emplace_back("its lists are empty: no test was started, or only -K");
    if (run.cut_lists > 0) {
        result.is = std::max(result.is, verdict::CUT);
        result.remarks.push_back(
            std::to_string(run.cut_lists)
                .append(" of ")
                .append(std::to_string(run.cut_lists + run.lists))
                .append(run.cut_lists == 1 ? " lists is not complete" : " lists are not complete"));
    }
    if (run.is_ambiguous) {
        result.is = std::max(result.is, verdict::AMBIGUOUS);
        result.remarks.emplace_back("two runs write lists under this ident at the same time: give "
                                    "each its own name with -I");
    }
}

// An idle run, for instance one that was ended at once, does not count beside one that passes.
verdict worst_of(const std::vector<run_verdict> &runs) {
    verdict worst = verdict::NOT_JUDGED;
    for (const run_verdict &run : runs)
        worst = std::max(worst, run.is);
    return worst;
}

} // namespace

const char *name_of(verdict is) {
    return VERDICT_NAMES[static_cast<size_t>(is)];
}

board_verdict judge(const board_history &board, const judge_rules &rules) {
    board_verdict result = {.board = &board, .runs = {}};
    for (const run_history &run : board.runs) {
        result.runs.push_back(run_judge(run, rules).judge());
        result.runs.back().number = result.runs.size();
    }
    result.is = worst_of(result.runs);
    const bool is_untested = std::ranges::any_of(result.runs, [&](const run_verdict &run) {
        return run.is <= verdict::IDLE && rules.expected;
    });
    if (result.is == verdict::PASS && is_untested)
        result.is = verdict::IDLE;
    return result;
}

std::string first_seen_text(const moved_error &error) {
    return time_text(error.first_ms) == "-"
               ? ""
               : text_of("; first in the list of %s", time_text(error.first_ms).c_str());
}

std::string error_words(const moved_error &error) {
    return std::string(error.meaning).append(": ").append(std::to_string(error.count));
}
