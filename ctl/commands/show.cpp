// hk_ctl show: every record of a run, each counter with its field and its meaning.

#include "ctl/commands/show.h"

#include <cstdio>

#include "ctl/commands/commands.h"
#include "ctl/selection.h"
#include "ctl/text.h"

namespace {

void print_counter(const named_counter &counter, bool is_error) {
    printf("    %-16s%12lld  %s%s\n", counter.field, static_cast<long long>(counter.value),
           counter.meaning, is_error && counter.value != 0 ? "  <<<" : "");
}

void print_samples(const TestRecord &record, const counter_meaning &meaning) {
    if (meaning.sample_position == nullptr)
        return;
    printf("    hist      ");
    for (const ErrorSample &sample : samples_newest_first(record))
        printf(" %d,%d", sample.position, sample.value);
    printf("  %s, %s; newest first\n", meaning.sample_position, meaning.sample_value);
}

void print_record(const stress_run &run, size_t index) {
    const TestRecord &record = run.table().records[index];
    const counter_meaning &meaning = run.meaning_of(index);
    printf("%zu %s: %s (-%s), %s, pid %d, kind %d\n", index, list_name(record).c_str(),
           meaning.test, meaning.option != nullptr ? meaning.option : "",
           name_of(run.state_of(run.test_of(index))), record.pid, record.kind_code);
    for (const named_counter &counter : counts_of(record, meaning))
        print_counter(counter, false);
    for (const named_counter &counter : errors_of(record, meaning))
        print_counter(counter, true);
    print_samples(record, meaning);
}

void print_run(const stress_run &run) {
    std::string note = run.has_lost_supervisor() ? text_of(", %s", name_of_state(run)) : "";
    if (run.supervisor_is == supervisor_state::UNSEEN)
        note = ", its processes are another user's";
    printf("run @%d%s, since %s UTC, segment %d, options %s\n",
           static_cast<int>(run.supervisor_id()), note.c_str(),
           date_text(run.memory.created).c_str(), run.memory.id,
           run.options.empty() ? "-" : printable(joined(run.options)).c_str());
    for (size_t index = 1; index < run.records_used; ++index)
        print_record(run, index);
}

const char *text_or_dash(const char *text) {
    return text != nullptr ? text : "-";
}

void print_meaning(const counter_meaning &row, const char *second) {
    printf("| `-%s`%s | %s | %s | %s | %s | %s |\n", row.option, second,
           text_or_dash(row.write_count), text_or_dash(row.read_count), text_or_dash(row.errors),
           text_or_dash(row.errors2), text_or_dash(row.errors3));
}

} // namespace

int status_of(const stress_run &run) {
    if (run.records_used == 1)
        return NOTHING_THERE;
    return has_counted_errors(run) || has_lost_tests(run) ? SOMETHING_WRONG : DONE;
}

int show_run(const command_options &options, command_words words) {
    int status = DONE;
    const auto run = choose_run(words, true, status);
    if (!run)
        return status;
    if (options.json)
        print_json(*run);
    else
        print_run(*run);
    return status_of(*run);
}

int show_meanings(const command_options &, command_words) {
    printf("| Test | `write_count` | `read_count` | `errors` | `errors2` | `errors3` |\n"
           "|---|---|---|---|---|---|\n");
    for (const counter_meaning &row : COUNTER_MEANINGS) {
        if (row.option == nullptr || row.letter == record_letter::PANEL)
            continue; // not a test of the command line, or without counters
        print_meaning(row, "");
        if (row.letter == record_letter::FIO)
            print_meaning(SECOND_FIO_MEANING, ", second record");
    }
    return DONE;
}
