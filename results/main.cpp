// hk_results: reads the results lists of hk_stress from system logs and says whether the boards are
// good.

#include <CLI/CLI.hpp>
#include <csignal>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <unistd.h>
#include <utility>

#include "results/history/follow.h"
#include "results/output/report.h"
#include "results/output/series.h"

namespace {

constexpr std::array FORMATS = {"table", "json", "junit", "tap", "csv"};

struct options {
    std::string expected;
    bool has_expected = false;
    std::vector<std::string> allowed;
    std::string format = "table";
    std::string page;
    bool follows = false;
    bool fails_fast = false;
    std::vector<std::string> files;
};

std::string failure_message(const CLI::App *, const CLI::Error &fault) {
    return std::string("hk_results: ").append(fault.what()).append("; see hk_results --help\n");
}

void describe(CLI::App &app, options &chosen) {
    app.failure_message(failure_message);
    app.description("Reads results lists of hk_stress from system logs and judges the boards.");
    app.footer("Exit status: 0 everything that was tested passes; 1 something failed, stalled, is "
               "missing, unexpected,\ncut or ambiguous; 2 wrong use, unreadable input or "
               "unwritable output; 3 nothing,\nor too little, was tested. See hk_results(1).");
    app.add_option("FILE", chosen.files,
                   "Logs, plain or packed by gzip or zstd; - or none: standard input");
    app.add_option("--expect", chosen.expected,
                   "The options of the run, as \"-d1 -l10 -h -E55 -h -E28\": what should be there")
        ->each([&chosen](const std::string &) { chosen.has_expected = true; });
    app.add_option("--allow", chosen.allowed,
                   "Errors that are no fault, as 'consume:3<=10/h' or 'sp1 consume:3<=10'")
        ->allow_extra_args(false);
    app.add_option("--format", chosen.format, "table, json, junit, tap or csv")
        ->check(CLI::IsMember(std::vector<std::string>(FORMATS.begin(), FORMATS.end())));
    app.add_option("--html", chosen.page, "Write a page with plots to that file");
    CLI::Option *follow =
        app.add_flag("--follow", chosen.follows, "Keep reading as the logs grow, until Ctrl-C");
    app.add_flag("--fail-fast", chosen.fails_fast,
                 "End when a board becomes worse than pass, with status 1")
        ->needs(follow);
}

judge_rules rules_of(const options &chosen) {
    judge_rules rules;
    for (const std::string &rule : chosen.allowed)
        rules.allowed.push_back(read_allowance(rule));
    if (chosen.has_expected)
        rules.expected = expect(chosen.expected);
    return rules;
}

bool is_terminal() {
    return isatty(STDOUT_FILENO) != 0;
}

std::unique_ptr<report> form_of(const std::string &format) {
    if (format == "json")
        return json_report(std::cout);
    if (format == "junit")
        return junit_report(std::cout);
    if (format == "tap")
        return tap_report(std::cout);
    return table_report(std::cout, is_terminal() && getenv("NO_COLOR") == nullptr);
}

// A history, what watches it, and how to judge it.
class session {
public:
    explicit session(const options &with) : chosen(with), rules(rules_of(with)) {
        if (chosen.format == "csv")
            rows = csv_rows(std::cout);
        if (rows != nullptr)
            history.observers.push_back(rows.get());
        if (!chosen.page.empty())
            history.observers.push_back(&series);
    }

    bool is_bad(const board_history &board) const {
        return judge(board, rules).is > verdict::PASS;
    }

    exit_code show() const {
        const totals all = judge_all(history, rules);
        if (rows == nullptr)
            write_report(*form_of(chosen.format), history, rules, all);
        else
            std::cerr << sentence_of(all) << '\n';
        std::cout.flush();
        return exit_code_of(all);
    }

    void write_page() const {
        if (chosen.page.empty())
            return;
        std::ofstream file(chosen.page, std::ios::binary | std::ios::trunc);
        write_report(*page_report(file, series), history, rules, judge_all(history, rules));
        if (!file.flush())
            throw unreadable_input(chosen.page + ": cannot be written");
    }

    log_history history;

private:
    const options &chosen;
    judge_rules rules;
    series_keeper series;
    std::unique_ptr<list_observer> rows;
};

volatile sig_atomic_t is_told_to_end = 0;

void tell_to_end(int) {
    is_told_to_end = 1;
}

// The time between two looks at the logs.
constexpr int LOOK_MS = 200;

// Prints those that have not been there. Returns true if there is one.
bool report_missing(const std::deque<followed_log> &logs, const char *what_is_done) {
    bool is_missing = false;
    for (const followed_log &log : logs) {
        if (log.has_begun())
            continue;
        std::cerr << "hk_results: " << log.name() << " is not there" << what_is_done << '\n';
        is_missing = true;
    }
    return is_missing;
}

int follow(session &judged, const options &chosen) {
    if (chosen.files.empty() || std::ranges::count(chosen.files, "-") > 0)
        throw CLI::ValidationError("--follow",
                                   "needs the names of logs; standard input ends by itself");
    (void)signal(SIGINT, tell_to_end);
    (void)signal(SIGTERM, tell_to_end);
    std::deque<followed_log> logs;
    for (const std::string &path : chosen.files)
        logs.emplace_back(path, judged.history);
    bool is_over = false;
    bool has_news = true;
    bool is_first_look = true;
    const auto stop = [&](const board_history &board) {
        has_news = true;
        is_over = chosen.fails_fast && judged.is_bad(board);
        return is_over;
    };
    while (!is_over && is_told_to_end == 0) {
        for (followed_log &log : logs)
            if (!is_over)
                (void)log.read(stop);
        if (std::exchange(is_first_look, false) && !is_over)
            (void)report_missing(logs, ": waiting for it");
        if (has_news && is_terminal() && chosen.format == "table" && !is_over) {
            std::cout << "\x1b[H\x1b[2J";
            (void)judged.show();
        }
        has_news = false;
        if (!is_over)
            (void)poll(nullptr, 0, LOOK_MS);
    }
    if (!is_over) { // a list that is being written gets its end
        (void)poll(nullptr, 0, LOOK_MS);
        for (followed_log &log : logs)
            (void)log.read(stop);
        judged.history.finish();
    }
    judged.write_page();
    const int status = judged.show();
    return !is_over && report_missing(logs, "") ? WRONG_USE_OR_INPUT : status;
}

int judge_files(session &judged, const options &chosen) {
    read_files(chosen.files.empty() ? std::vector<std::string>{"-"} : chosen.files, judged.history);
    judged.history.finish();
    judged.write_page();
    return judged.show();
}

int run(int argc, char **argv) {
    options chosen;
    CLI::App app;
    describe(app, chosen);
    try {
        app.parse(argc, argv);
        session judged(chosen);
        const int status = chosen.follows ? follow(judged, chosen) : judge_files(judged, chosen);
        return std::cout ? status : WRONG_USE_OR_INPUT;
    } catch (const CLI::ParseError &fault) {
        return app.exit(fault) == 0 ? EXIT_SUCCESS : WRONG_USE_OR_INPUT;
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &fault) {
        std::cerr << "hk_results: " << fault.what() << '\n';
        return WRONG_USE_OR_INPUT;
    }
}
