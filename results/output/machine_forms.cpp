// The forms that machines read.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/output/report.h"
#include "results/reading/rows/row_reader.h"

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

// As a text of JSON and XML: what is no UTF-8 becomes '?', as do control characters.
std::string clean(const std::string &text) {
    return printable(text);
}

json json_of(const moved_error &error) {
    json item = {{"number", error.number + 1}, {"field", error.field},
                 {"meaning", error.meaning},   {"count", error.count},
                 {"per_hour", error.per_hour}, {"first_seen", iso_time(error.first_ms)}};
    if (!error.allowed_by.empty())
        item["allowed_by"] = clean(error.allowed_by);
    return item;
}

json json_of(const record_verdict &record, bool is_report) {
    json item = {
        {"name", record.name}, {"verdict", name_of(record.is)}, {"option", clean(record.option)}};
    if (record.record != nullptr) {
        const line_layout &layout = *record.record->layout;
        item["test"] = record.test;
        if (!is_report) // which does not show it
            item["kind"] = record.record->newest.kind_code;
        item["counts"] = json::object();
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

    void begin(const totals &all) override {
        out << "{\"schema\":" << SCHEMA_VERSION << ",\"verdict\":" << json(overall(all)).dump()
            << ",\"exit_status\":" << exit_code_of(all)
            << ",\"sentence\":" << json(sentence_of(all)).dump()
            << ",\"unreadable_lines\":" << all.unreadable_lines << ",\"boards\":[";
    }
    void add(const board_verdict &board) override {
        json item = {{"ident", clean(board.board->ident)},
                     {"host", clean(board.board->host)},
                     {"verdict", name_of(board.is)},
                     {"runs", json::array()}};
        for (const run_verdict &run : board.runs)
            item["runs"].push_back(json_of(run));
        out << (is_first ? "\n" : ",\n") << item.dump(1);
        is_first = false;
    }
    void end(const totals &) override {
        out << "\n]}\n";
    }

private:
    static std::string overall(const totals &all) {
        return all.boards == 0 ? "idle" : name_of(all.is);
    }

    std::ostream &out;
    bool is_first = true;
};

std::string details(const record_verdict &record) {
    std::string text;
    for (const std::string &reason : record.reasons)
        text.append(reason).append("\n");
    for (const moved_error &error : record.errors)
        text.append(text_of("error %zu, ", error.number + 1))
            .append(error_words(error))
            .append(error.allowed_by.empty() ? "" : ", allowed")
            .append("\n");
    for (const std::string &sample : record.samples)
        text.append("sample: ").append(sample).append("\n");
    return text;
}

std::string first_reason(const record_verdict &record) {
    return record.reasons.empty() ? name_of(record.is) : record.reasons[0];
}

std::string run_name(const board_verdict &board, const run_verdict &run) {
    return text_of("%s, run %zu", name_of(*board.board).c_str(), run.number);
}

// A script that reads these forms alone must not take for good what the exit status does not: a
// record that was expected and never worked is a failure.
bool is_failure(const record_verdict &record) {
    return record.is > verdict::PASS || (record.is == verdict::IDLE && record.is_expected);
}

// A run fails as a whole if a list is cut, if it is ambiguous, and if its board does not pass
// although no record fails.
bool fails_as_a_whole(const board_verdict &board, const run_verdict &run) {
    const bool is_untested = board.is < verdict::PASS && run.is < verdict::PASS;
    return run.run->cut_lists > 0 || run.run->is_ambiguous ||
           (is_untested && std::ranges::none_of(run.records, is_failure));
}

std::string whole_reason(const run_verdict &run) {
    return run.remarks.empty() ? "nothing was tested" : run.remarks[0];
}

class junit_form : public report {
public:
    explicit junit_form(std::ostream &to) : out(to) {}

    void begin(const totals &) override {
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"hk_results\">\n";
    }
    void add(const board_verdict &board) override {
        for (const run_verdict &run : board.runs)
            add(board, run);
    }
    void end(const totals &all) override {
        if (all.boards == 0)
            out << "<testsuite name=\"no results list\" tests=\"1\" failures=\"1\"><testcase "
                   "name=\"results list\"><failure message=\"there is no results list\"/>"
                   "</testcase></testsuite>\n";
        out << "</testsuites>\n";
    }

private:
    static void add_outcome(pugi::xml_node test, verdict is, bool fails, const std::string &message,
                            const std::string &text) {
        if (is == verdict::PASS && !fails)
            return;
        pugi::xml_node outcome = test.append_child(fails ? "failure" : "skipped");
        outcome.append_attribute("message") = message.c_str();
        if (fails) {
            outcome.append_attribute("type") = name_of(is);
            outcome.text() = text.c_str();
        }
    }

    void add(const board_verdict &board, const run_verdict &run) {
        pugi::xml_document document;
        pugi::xml_node suite = document.append_child("testsuite");
        const std::string name = run_name(board, run);
        size_t tests = 0;
        size_t failures = 0;
        size_t skipped = 0;
        const auto add_case = [&](const std::string &of, verdict is, bool fails,
                                  const std::string &message, const std::string &text) {
            pugi::xml_node test = suite.append_child("testcase");
            test.append_attribute("classname") = name.c_str();
            test.append_attribute("name") = of.c_str();
            add_outcome(test, is, fails, message, text);
            ++tests;
            failures += fails ? 1 : 0;
            skipped += !fails && is < verdict::PASS ? 1 : 0;
        };
        for (const record_verdict &record : run.records)
            add_case(record.name, record.is, is_failure(record), first_reason(record),
                     details(record));
        if (fails_as_a_whole(board, run) || run.records.empty())
            add_case("the run", run.is, fails_as_a_whole(board, run), whole_reason(run), "");
        suite.append_attribute("name") = name.c_str();
        suite.append_attribute("tests") = tests;
        suite.append_attribute("failures") = failures;
        suite.append_attribute("skipped") = skipped;
        suite.append_attribute("time") =
            text_of("%.3f", static_cast<double>(run.run->clock_ms) / 1000).c_str();
        document.save(out, " ", pugi::format_indent | pugi::format_no_declaration,
                      pugi::encoding_utf8);
    }

    std::ostream &out;
};

// A '#' begins a directive of the protocol.
std::string tap_text(std::string text) {
    for (size_t at = 0; (at = text.find_first_of("#\\", at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\\');
    return text;
}

class tap_form : public report {
public:
    explicit tap_form(std::ostream &to) : out(to) {}

    void begin(const totals &) override {
        out << "TAP version 14\n";
    }
    void add(const board_verdict &board) override {
        for (const run_verdict &run : board.runs) {
            const std::string where = run_name(board, run);
            for (const record_verdict &record : run.records)
                add_point(record.is, is_failure(record), where + ": " + record.name,
                          first_reason(record), details(record));
            if (fails_as_a_whole(board, run) || run.records.empty())
                add_point(run.is, fails_as_a_whole(board, run), where, whole_reason(run), "");
        }
    }
    void end(const totals &all) override {
        if (all.boards == 0)
            out << "not ok " << ++points << " - there is no results list\n";
        out << "1.." << points << "\n# " << sentence_of(all) << "\n";
    }

private:
    void add_point(verdict is, bool fails, const std::string &name, const std::string &reason,
                   const std::string &text) {
        out << (fails ? "not ok " : "ok ") << ++points << " - " << tap_text(name);
        if (fails)
            out << ", " << name_of(is) << ": " << tap_text(reason);
        else if (is < verdict::PASS)
            out << " # SKIP " << name_of(is) << ": " << reason;
        out << '\n';
        for (size_t from = 0; fails && from < text.size();) {
            const size_t end = text.find('\n', from);
            out << "# " << text.substr(from, end - from) << '\n';
            from = end + 1;
        }
    }

    std::ostream &out;
    size_t points = 0;
};

// A cell that a spreadsheet would take for a formula gets an apostrophe.
std::string cell(const std::string &text) {
    std::string value = printable(text);
    if (!value.empty() && std::string_view("=+-@\t").find(value[0]) != std::string_view::npos)
        value.insert(0, 1, '\'');
    if (value.find_first_of("\",;\n") == std::string::npos)
        return value;
    for (size_t at = 0; (at = value.find('"', at)) != std::string::npos; at += 2)
        value.insert(at, 1, '"');
    return std::string("\"").append(value).append("\"");
}

class csv_form : public list_observer {
public:
    explicit csv_form(std::ostream &to) : out(to) {
        out << "time,host,ident,run,record,name,kind,first count,second count,error 1,error 2,"
               "error 3,sample position,sample value\r\n";
    }

    void list_taken(const board_history &board, size_t run, const open_list &list) override {
        for (size_t i = 0; i < list.records.size(); ++i)
            add(board, run, list.time_ms, i, list.records[i]);
    }

private:
    void add(const board_history &board, size_t run, int64_t time_ms, size_t index,
             const TestRecord &record) {
        const line_layout &layout = layout_of(record.test_letter);
        out << time_text(time_ms) << ',' << cell(board.host) << ',' << cell(board.ident) << ','
            << run + 1 << ',' << index + 1 << ',' << cell(printable_name(record)) << ','
            << record.kind_code;
        for (const uint8_t word : layout.counts)
            out << ',' << word_of(record, word);
        for (size_t i = 0; i < layout.errors.size(); ++i)
            out << ',' << (i < layout.error_count ? word_of(record, layout.errors[i]) : 0);
        const ErrorSample newest = samples_newest_first(record)[0];
        out << ',' << newest.position << ',' << newest.value << "\r\n";
    }

    std::ostream &out;
};

} // namespace

std::unique_ptr<report> json_report(std::ostream &out) {
    return std::make_unique<json_form>(out);
}

std::unique_ptr<report> junit_report(std::ostream &out) {
    return std::make_unique<junit_form>(out);
}

std::unique_ptr<report> tap_report(std::ostream &out) {
    return std::make_unique<tap_form>(out);
}

std::unique_ptr<list_observer> csv_rows(std::ostream &out) {
    return std::make_unique<csv_form>(out);
}
