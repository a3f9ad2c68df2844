// hk_ctl runs: a line for each run.

#include <algorithm>
#include <cstdio>

#include "ctl/commands/commands.h"
#include "ctl/selection.h"
#include "ctl/text.h"

namespace {

struct run_counts {
    int held = 0;
    int ended = 0;
    int in_error = 0; // records with an error
};

run_counts count(const stress_run &run) {
    run_counts counts;
    for (const test_group &test : run.tests) {
        const test_state state = run.state_of(test);
        counts.held += state == test_state::HELD || state == test_state::HOLDING ? 1 : 0;
        counts.ended += is_at_work(state) ? 0 : 1;
    }
    const auto &records = run.table().records;
    counts.in_error =
        static_cast<int>(std::count_if(records.begin() + 1, records.end(), has_errors));
    return counts;
}

void print_run(const stress_run &run) {
    const run_counts counts = count(run);
    printf("@%-7d %-8s %-19s %7zu %4d %5d %6d %9d  %s\n", static_cast<int>(run.supervisor_id()),
           name_of_state(run), date_text(run.memory.created).c_str(), run.records_used - 1,
           counts.held, counts.ended, counts.in_error, run.memory.id,
           run.options.empty() ? "-" : printable(joined(run.options)).c_str());
    if (!run.is_killed())
        return;
    printf("         its supervisor is gone; these tests still run:");
    for (const process &test : run.test_processes)
        printf(" %d", static_cast<int>(test.pid));
    printf("\n");
}

bool is_wrong(const stress_run &run) {
    return has_counted_errors(run) || has_lost_tests(run);
}

} // namespace

int list_runs(const command_options &, command_words) {
    const run_list found = find_runs();
    report_denied(found);
    if (found.runs.empty()) {
        if (found.denied.empty())
            complain("there is no run");
        return NOTHING_THERE;
    }
    printf("%-8s %-8s %-19s %7s %4s %5s %6s %9s  %s\n", "RUN", "STATE", "SINCE (UTC)", "RECORDS",
           "HELD", "ENDED", "ERRORS", "SEGMENT", "OPTIONS");
    for (const stress_run &run : found.runs)
        print_run(run);
    return std::any_of(found.runs.begin(), found.runs.end(), is_wrong) ? SOMETHING_WRONG : DONE;
}
