#include "results/output/report.h"

#include <algorithm>

#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/reading/rows/row_reader.h"

namespace {

class table : public report {
public:
    table(std::ostream &to, bool coloured) : out(to), is_coloured(coloured) {}

    void start(const totals &) override {}
    void add(const board_verdict &board) override;
    void finish(const totals &all) override;

private:
    std::string painted(verdict is, const std::string &text) const;
    void add(const run_verdict &run);
    void add(const record_verdict &record);
    void add_errors(const record_verdict &record);

    std::ostream &out;
    bool is_coloured;
    size_t name_width = 0;
};

std::string in_capitals(std::string text) {
    for (char &letter : text)
        letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    return text;
}

// Bad verdicts are in capitals: a terminal may show no colours.
std::string word_for(verdict is) {
    const std::string word = name_of(is);
    return is > verdict::PASS ? in_capitals(word) : word;
}

std::string table::painted(verdict is, const std::string &text) const {
    constexpr const char *RED = "\x1b[1;31m";
    constexpr const char *GREEN = "\x1b[32m";
    constexpr const char *YELLOW = "\x1b[33m";
    if (!is_coloured)
        return text;
    const char *colour = is > verdict::PASS ? RED : is == verdict::PASS ? GREEN : YELLOW;
    return std::string(colour).append(text).append("\x1b[0m");
}

std::string count_text(const record_verdict &record) {
    if (record.record == nullptr)
        return "";
    const line_layout &layout = *record.record->layout;
    return text_of("%12llu %-6.*s", static_cast<unsigned long long>(record.record->count(1)),
                   static_cast<int>(layout.count_names[1].size()), layout.count_names[1].data());
}

std::string rate_text(double per_second) {
    return per_second <= 0   ? ""
           : per_second < 10 ? text_of("%.1f/s", per_second)
                             : text_of("%.0f/s", per_second);
}

std::string errors_text(const record_verdict &record) {
    uint64_t errors = 0;
    for (const moved_error &error : record.errors)
        errors += error.count;
    return record.record == nullptr ? ""
                                    : text_of("%llu %s", static_cast<unsigned long long>(errors),
                                              errors == 1 ? "error" : "errors");
}

std::string how_often(const moved_error &error) {
    std::string text = first_seen_text(error);
    if (error.per_hour > 0)
        text += text_of(", %.3g an hour", error.per_hour);
    if (!error.allowed_by.empty())
        text += text_of(", allowed by '%s'", printable(error.allowed_by).c_str());
    return text;
}

void table::add_errors(const record_verdict &record) {
    for (const moved_error &error : record.errors)
        out << "             error " << error.number + 1 << ", " << error_words(error)
            << how_often(error) << '\n';
    for (const std::string &sample : record.samples)
        out << "             sample: " << sample << '\n';
}

void table::add(const record_verdict &record) {
    std::string name = record.name;
    name.resize(std::max(name.size(), name_width), ' ');
    std::string text = text_of("  %-10s %s %-6s", word_for(record.is).c_str(), name.c_str(),
                               record.option.c_str());
    text += text_of(" %-20s %9s %12s", count_text(record).c_str(),
                    rate_text(record.per_second).c_str(), errors_text(record).c_str());
    for (size_t i = 0; i < record.reasons.size(); ++i)
        text.append(i == 0 ? "  " : "; ").append(record.reasons[i]);
    text.erase(text.find_last_not_of(' ') + 1);
    const std::string word = word_for(record.is);
    text.replace(2, word.size(), painted(record.is, word));
    out << text << '\n';
    add_errors(record);
}

void table::add(const run_verdict &run) {
    out << text_of("run %zu: ", run.number) << painted(run.is, word_for(run.is)) << ", "
        << span_text(*run.run) << '\n';
    for (const std::string &remark : run.remarks)
        out << "  note: " << remark << '\n';
    name_width = 0;
    for (const record_verdict &record : run.records)
        name_width = std::max(name_width, record.name.size());
    for (const record_verdict &record : run.records)
        add(record);
}

void table::add(const board_verdict &board) {
    out << "board " << name_of(*board.board) << ": " << painted(board.is, word_for(board.is))
        << '\n';
    for (const run_verdict &run : board.runs)
        add(run);
    out << '\n';
}

void table::finish(const totals &all) {
    const bool is_untested = exit_code_of(all) == NOTHING_WAS_TESTED;
    out << painted(is_untested ? verdict::IDLE : all.is, sentence_of(all)) << '\n';
}

} // namespace

std::unique_ptr<report> table_report(std::ostream &out, bool is_coloured) {
    return std::make_unique<table>(out, is_coloured);
}

void write_report(report &form, const log_history &history, const judge_rules &rules,
                  const totals &all) {
    form.start(all);
    for (const board_history &board : history.boards)
        if (!board.runs.empty())
            form.add(judge(board, rules));
    form.finish(all);
}
