#include "results/output/report.h"
#include "results/output/series.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/output/page_parts.h"
#include "results/reading/rows/row_reader.h"

namespace {

// What comes from a log may be anything.
std::string escaped(const std::string &text) {
    std::string result;
    for (const char letter : printable(text))
        switch (letter) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += letter;
        }
    return result;
}

const char *class_of(verdict is) {
    return is > verdict::PASS ? "fail" : is == verdict::PASS ? "pass" : "none";
}

const char *class_of(exit_code code) {
    return code == SOMETHING_IS_WRONG ? "fail" : code == EVERYTHING_PASSES ? "pass" : "none";
}

std::string mark_of(verdict is) {
    return text_of("<span class=\"is %s\">%s</span>", class_of(is), name_of(is));
}

class page : public report {
public:
    page(std::ostream &to, const series_keeper &points) : out(to), series(points) {}

    void start(const totals &all) override;
    void add(const board_verdict &board) override;
    void finish(const totals &all) override;

private:
    void add_run(const board_verdict &board, const run_verdict &run);
    void add_row(const record_verdict &record);
    void add_words(const record_verdict &record);
    void add_plots(const board_verdict &board, const run_verdict &run);

    std::ostream &out;
    const series_keeper &series;
    size_t runs_written = 0;
};

void page::start(const totals &all) {
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<link rel=\"icon\" href=\"data:,\">\n<title>"
        << (exit_code_of(all) == EVERYTHING_PASSES ? "pass" : "not good")
        << " - results of hk_stress</title>\n<style>" << dygraphs_style() << "</style>\n<style>\n"
        << page_style() << "</style>\n</head>\n<body>\n<div class=\"verdict "
        << class_of(exit_code_of(all)) << "\"><h1>Results of hk_stress</h1>\n<p>"
        << escaped(sentence_of(all)) << "</p></div>\n";
}

void page::add_words(const record_verdict &record) {
    out << "<td class=\"words\">";
    std::string items;
    for (const std::string &reason : record.reasons)
        out << escaped(reason) << ". ";
    for (const moved_error &error : record.errors)
        items.append("<li>")
            .append(escaped(error_words(error)))
            .append(first_seen_text(error))
            .append(error.per_hour > 0 ? text_of(", %.3g an hour", error.per_hour) : "")
            .append(error.allowed_by.empty() ? "" : "; allowed by " + escaped(error.allowed_by))
            .append("</li>");
    for (const std::string &sample : record.samples)
        items.append("<li>sample: ").append(escaped(sample)).append("</li>");
    if (!items.empty())
        out << "<ul>" << items << "</ul>";
    out << "</td>";
}

void page::add_row(const record_verdict &record) {
    out << "<tr><td>" << mark_of(record.is) << "</td><td class=\"name\">" << escaped(record.name)
        << "</td><td>" << escaped(record.option) << "</td>";
    if (record.record == nullptr)
        out << "<td></td><td></td>";
    else
        out << "<td class=\"number\">" << record.record->count(1) << ' '
            << record.record->layout->count_names[1] << "</td><td class=\"number\">"
            << text_of("%.1f/s", record.per_second) << "</td>";
    add_words(record);
    out << "</tr>\n";
}

void page::add_plots(const board_verdict &board, const run_verdict &run) {
    const run_series *points = series.of(*board.board, run.number - 1);
    if (points == nullptr || points->records.empty())
        return;
    // Numbers, and words of the table of counters: no text of a log, which could end the element.
    nlohmann::json data = {{"times", points->times_ms}, {"records", nlohmann::json::array()}};
    out << "<div class=\"plots\">\n";
    for (size_t i = 0; i < points->records.size(); ++i) {
        const record_history &record = run.run->records[i];
        nlohmann::json item = {{"what", std::string(record.layout->count_names[1])},
                               {"counts", nlohmann::json::array()},
                               {"errors", nlohmann::json::array()}};
        for (const run_series::point &point : points->records[i]) {
            item["counts"].push_back(point.count);
            item["errors"].push_back(point.errors);
        }
        data["records"].push_back(std::move(item));
        out << text_of("<div class=\"plot\" id=\"run%zu-%zu\"><h4>", runs_written, i + 1)
            << escaped(printable_name(record.newest))
            << "</h4><div class=\"canvas\"></div></div>\n";
    }
    out << "</div>\n<script type=\"application/json\" id=\"run" << runs_written << "\">"
        << data.dump() << "</script>\n";
}

void page::add_run(const board_verdict &board, const run_verdict &run) {
    ++runs_written;
    out << "<h3>run " << run.number << ": " << mark_of(run.is) << ", " << span_text(*run.run)
        << "</h3>\n";
    for (const std::string &remark : run.remarks)
        out << "<p>Note: " << escaped(remark) << "</p>\n";
    out << "<table><thead><tr><th>verdict</th><th>record</th><th>option</th><th "
           "class=\"number\">count</th><th "
           "class=\"number\">rate</th><th></th></tr></thead>\n<tbody>";
    for (const record_verdict &record : run.records)
        add_row(record);
    out << "</tbody></table>\n";
    add_plots(board, run);
}

void page::add(const board_verdict &board) {
    out << "<h2>" << escaped(name_of(*board.board)) << ": " << mark_of(board.is) << "</h2>\n";
    for (const run_verdict &run : board.runs)
        add_run(board, run);
}

void page::finish(const totals &all) {
    out << "<p class=\"hint\">Blue: the rate from list to list. Red: errors up to then. Drag "
           "across a "
           "plot to zoom in, double-click to zoom out.</p>\n<footer>hk_results, written "
        << time_text(int64_t{time(nullptr)} * 1000) << " UTC; " << all.unreadable_lines
        << " lines could not be read.</footer>\n<script>" << dygraphs_script()
        << "</script>\n<script>\n"
        << page_script() << "</script>\n</body>\n</html>\n";
}

} // namespace

std::unique_ptr<report> page_report(std::ostream &out, const series_keeper &points) {
    return std::make_unique<page>(out, points);
}
