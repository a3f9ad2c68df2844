// The forms of test results, which a build server reads: JUnit and the Test Anything Protocol.

#include <algorithm>
#include <pugixml.hpp>

#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/output/report.h"

namespace {

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

// A script may read these forms and ignore the exit status. So a record that was expected and never
// worked is a failure.
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

    void start(const totals &) override {
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"hk_results\">\n";
    }
    void add(const board_verdict &board) override {
        for (const run_verdict &run : board.runs)
            add(board, run);
    }
    void finish(const totals &all) override {
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

    void start(const totals &) override {
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
    void finish(const totals &all) override {
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

} // namespace

std::unique_ptr<report> junit_report(std::ostream &out) {
    return std::make_unique<junit_form>(out);
}

std::unique_ptr<report> tap_report(std::ostream &out) {
    return std::make_unique<tap_form>(out);
}
