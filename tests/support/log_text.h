// Logs as the cases of hk_results write them, and what the program makes of them.

#pragma once

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "results/history/log_reader.h"
#include "results/output/report.h"
#include "results/output/series.h"

class text_source : public byte_source {
public:
    explicit text_source(std::string_view bytes) : left(bytes) {}
    size_t read(std::span<char> room) override {
        const size_t count = std::min(room.size(), left.size());
        std::copy_n(left.begin(), count, room.begin());
        left.remove_prefix(count);
        return count;
    }

private:
    std::string_view left;
};

inline void read_text(log_history &history, std::string_view text) {
    text_source source(text);
    log_reader(source, 2026, history).read_all();
    history.finish();
}

// What the operator gets: the exit status, and the report.
struct outcome {
    exit_code status;
    std::string report;
    totals all;

    bool says(std::string_view part) const {
        return report.find(part) != std::string::npos;
    }
};

inline outcome judge_text(std::string_view text, const judge_rules &rules = {},
                          std::unique_ptr<report> (*form)(std::ostream &) = nullptr) {
    log_history history;
    read_text(history, text);
    const totals all = judge_all(history, rules);
    std::ostringstream out;
    write_report(form != nullptr ? *form(out) : *table_report(out, false), history, rules, all);
    return {exit_code_of(all), out.str(), all};
}

// The forms that have every list: the rows of --format csv, and the page.
struct list_forms {
    std::string rows;
    std::string page;
};

inline list_forms forms_of(std::string_view text, const judge_rules &rules = {}) {
    log_history history;
    std::ostringstream rows;
    std::ostringstream page;
    series_keeper series;
    const auto observer = csv_rows(rows);
    history.observers = {observer.get(), &series};
    read_text(history, text);
    write_report(*page_report(page, series), history, rules, judge_all(history, rules));
    return {rows.str(), page.str()};
}

// The rules of --expect.
inline judge_rules expecting(const std::string &options) {
    judge_rules rules;
    rules.expected = expect(options);
    return rules;
}

constexpr const char *BOARD = "rack7 Stress 020000001234 ";

// A line at so many seconds after midnight.
inline std::string at(int second, std::string_view message, std::string_view from = BOARD) {
    char time[40];
    (void)snprintf(time, sizeof time, "2026-11-22T%02d:%02d:%02d+00:00 ", second / 3600,
                   second / 60 % 60, second % 60);
    return std::string(time).append(from).append(": ").append(message).append("\n");
}

// A line of the list: "3 sp1 consume read 10 verify 10", its errors, its newest sample.
inline std::string item(std::string_view start, std::string_view errors = "0,0,0",
                        std::string_view sample = "0,0") {
    return std::string("<LI> ")
        .append(start)
        .append(" errors ")
        .append(errors)
        .append(" hist ")
        .append(sample)
        .append(" 0,0 0,0 0,0 0,0");
}

inline std::string list(int second, const std::vector<std::string> &items,
                        std::string_view from = BOARD) {
    std::string text = at(second, "<OL>", from);
    for (const std::string &each : items)
        text += at(second, each, from);
    return text + at(second, "</OL><P>", from);
}

inline std::string producer(int64_t blocks, std::string_view errors = "0,0,0") {
    const std::string count = std::to_string(static_cast<int32_t>(blocks));
    return item("3 sp2 produce wrote " + count + " verify " + count, errors);
}

inline std::string receiver(int64_t reads, int64_t good, std::string_view errors = "0,0,0") {
    return item("3 sp1 consume read " + std::to_string(static_cast<int32_t>(reads)) + " verify " +
                    std::to_string(static_cast<int32_t>(good)),
                errors);
}

// A good run of a receiver and a producer: lists at 10, 20 and 30 s and the two of the stop at 35
// s.
inline std::string good_run(std::string_view from = BOARD, int start = 0) {
    std::string text;
    for (const int second : {10, 20, 30, 35, 35})
        text += list(start + second, {receiver(200 * second, 200 * second), producer(200 * second)},
                     from);
    return text;
}
