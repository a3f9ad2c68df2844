// hk_results: reads the results lists of hk_stress from system logs and says whether the boards are
// good.

#include <CLI/CLI.hpp>
#include <iostream>
#include <unistd.h>

#include "results/output/report.h"
#include "results/reading/log_reader.h"

namespace {

constexpr std::array FORMATS = {"table", "json", "junit", "tap", "csv"};

struct options {
    std::string expected;
    bool has_expected = false;
    std::vector<std::string> allowed;
    std::string format = "table";
    std::vector<std::string> files;
};

void describe(CLI::App &app, options &chosen) {
    app.description("Reads results lists of hk_stress from system logs and judges the boards.");
    app.footer("Exit status: 0 everything passes; 1 something failed, stalled, is missing or cut; "
               "2 wrong use or\nunreadable input; 3 nothing was tested. See hk_results(1).");
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
}

judge_rules rules_of(const options &chosen) {
    judge_rules rules;
    for (const std::string &rule : chosen.allowed)
        rules.allowed.push_back(read_allowance(rule));
    if (chosen.has_expected)
        rules.expected = expect(chosen.expected);
    return rules;
}

std::unique_ptr<report> form_of(const std::string &format) {
    if (format == "json")
        return json_report(std::cout);
    if (format == "junit")
        return junit_report(std::cout);
    if (format == "tap")
        return tap_report(std::cout);
    return table_report(std::cout, isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr);
}

int judge_files(const options &chosen) {
    const judge_rules rules = rules_of(chosen);
    log_history history;
    std::unique_ptr<list_observer> rows;
    if (chosen.format == "csv")
        rows = csv_rows(std::cout);
    history.observer = rows.get();
    read_files(chosen.files.empty() ? std::vector<std::string>{"-"} : chosen.files, history);
    history.finish();
    const totals all = judge_all(history, rules);
    if (rows == nullptr)
        write_report(*form_of(chosen.format), history, rules, all);
    else
        std::cerr << sentence_of(all) << '\n';
    return exit_code_of(all);
}

} // namespace

int main(int argc, char **argv) {
    options chosen;
    CLI::App app;
    describe(app, chosen);
    try {
        app.parse(argc, argv);
        const int status = judge_files(chosen);
        std::cout.flush();
        return std::cout ? status : WRONG_USE_OR_INPUT;
    } catch (const CLI::ParseError &fault) {
        return app.exit(fault) == 0 ? EXIT_SUCCESS : WRONG_USE_OR_INPUT;
    } catch (const std::exception &fault) {
        std::cerr << "hk_results: " << fault.what() << '\n';
        return WRONG_USE_OR_INPUT;
    }
}
