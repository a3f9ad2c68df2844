#include <nlohmann/json.hpp>

#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/output/report.h"

namespace {

using json = nlohmann::ordered_json;

constexpr int SCHEMA_VERSION = 1;

std::string iso_time(int64_t time_ms) {
    std::string text = time_text(time_ms);
    if (text.size() < 11)
        return "";
    text[10] = 'T';
    return text + "Z";
}

json json_of(const moved_error &error) {
    json item = {{"number", error.number + 1}, {"field", error.field},
                 {"meaning", error.meaning},   {"count", error.count},
                 {"per_hour", error.per_hour}, {"first_seen", iso_time(error.first_ms)}};
    if (!error.allowed_by.empty())
        item["allowed_by"] = printable(error.allowed_by);
    return item;
}

json json_of(const record_verdict &record, bool is_report) {
    json item = {{"name", record.name},
                 {"verdict", name_of(record.is)},
                 {"option", printable(record.option)}};
    if (record.record != nullptr) {
        const line_layout &layout = *record.record->layout;
        item["test"] = record.test;
        if (!is_report) // which does not show it
            item["kind"] = record.record->newest.kind_code;
        for (size_t i = 0; i < layout.counts.size(); ++i)
            item["counts"][std::string(layout.count_names[i])] = record.record->count(i);
        item["per_second"] = record.per_second;
    }
    item["errors"] = json::array();
    for (const moved_error &error : record.errors)
        item["errors"].push_back(json_of(error));
    item["reasons"] = record.reasons;
    item["samples"] = record.samples;
    return item;
}

json json_of(const run_verdict &run) {
    json item = {{"run", run.number},
                 {"verdict", name_of(run.is)},
                 {"first_list", iso_time(run.run->first_ms)},
                 {"last_list", iso_time(run.run->last_ms)},
                 {"seconds", static_cast<double>(run.run->clock_ms) / 1000},
                 {"lists", run.run->lists},
                 {"cut_lists", run.run->cut_lists},
                 {"remarks", run.remarks},
                 {"records", json::array()}};
    for (const record_verdict &record : run.records)
        item["records"].push_back(json_of(record, run.run->is_report));
    return item;
}

class json_form : public report {
public:
    explicit json_form(std::ostream &to) : out(to) {}

    void start(const totals &all) override {
        out << "{\"schema\":" << SCHEMA_VERSION << ",\"verdict\":" << json(overall(all)).dump()
            << ",\"exit_status\":" << exit_code_of(all)
            << ",\"sentence\":" << json(sentence_of(all)).dump()
            << ",\"unreadable_lines\":" << all.unreadable_lines << ",\"boards\":[";
    }
    void add(const board_verdict &board) override {
        json item = {{"ident", printable(board.board->ident)},
                     {"host", printable(board.board->host)},
                     {"verdict", name_of(board.is)},
                     {"runs", json::array()}};
        for (const run_verdict &run : board.runs)
            item["runs"].push_back(json_of(run));
        out << (is_first ? "\n" : ",\n") << item.dump(1);
        is_first = false;
    }
    void finish(const totals &) override {
        out << "\n]}\n";
    }

private:
    static std::string overall(const totals &all) {
        return all.boards == 0 ? "idle" : name_of(all.is);
    }

    std::ostream &out;
    bool is_first = true;
};

} // namespace

std::unique_ptr<report> json_report(std::ostream &out) {
    return std::make_unique<json_form>(out);
}
