#include "ctl/run/runs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <unistd.h>

#include "ctl/text.h"

namespace {

bool names_process(const StatusTable &table, pid_t pid) {
    return std::any_of(
        table.records.begin() + 1, table.records.end(),
        [pid](const TestRecord &record) { return record.pid == pid; });
}

bool is_same_program(const process &one, const process &other) {
    return one.executable != 0 && one.executable == other.executable &&
           one.command == other.command;
}

// A test that has not written its pid yet runs the same program as the others. Any other process
// with the segment attached only reads it.
bool is_of_run(const stress_run &run, const process &candidate,
               const std::vector<process> &attached) {
    if (candidate.pid == run.supervisor_id() || names_process(run.table(), candidate.pid))
        return true;
    return std::any_of(attached.begin(), attached.end(), [&](const process &other) {
        const bool is_known =
            other.pid == run.supervisor_id() || names_process(run.table(), other.pid);
        return is_known && is_same_program(candidate, other);
    });
}

std::vector<process> attached_to(const segment &memory, const std::vector<process> &all) {
    std::vector<process> attached;
    for (const process &each : all)
        if (each.pid != getpid() &&
            std::find(each.shm.begin(), each.shm.end(), memory.id) != each.shm.end())
            attached.push_back(each);
    return attached;
}

void take_processes(stress_run &run, const std::vector<process> &all) {
    const std::vector<process> attached = attached_to(run.memory, all);
    for (const process &each : attached) {
        if (!is_of_run(run, each, attached))
            continue;
        if (run.options.empty())
            run.options = split_at_zeros(each.command);
        if (each.pid != run.supervisor_id()) {
            run.test_processes.push_back(each);
            continue;
        }
        run.supervisor_is = supervisor_state::RUNNING;
        run.supervisor = each;
    }
    if (!run.options.empty())
        run.options.erase(run.options.begin());
}

bool exists(pid_t pid) {
    return kill(pid, 0) == 0 || errno == EPERM;
}

// If the attached processes cannot be seen, those named in the records count as the run's.
void judge_unseen(stress_run &run, uint32_t unseen) {
    const bool is_hidden = unseen > 0 && run.test_processes.empty() && run.memory.attached > 0;
    if (run.supervisor_is == supervisor_state::GONE && is_hidden)
        run.supervisor_is = supervisor_state::UNSEEN;
}

stress_run run_of(const segment &memory, const table_copy &copy, const std::vector<process> &all,
                  uint32_t unseen) {
    stress_run run;
    run.memory = memory;
    run.copy = copy;
    run.records_used = records_in_use(copy.table);
    run.tests = tests_of(copy.table, run.records_used);
    take_processes(run, all);
    judge_unseen(run, unseen);
    return run;
}

} // namespace

test_state stress_run::state_of(const test_group &test) const {
    const pid_t pid = process_of(table(), test);
    const bool is_seen =
        std::any_of(test_processes.begin(), test_processes.end(),
                    [pid](const process &candidate) { return candidate.pid == pid; });
    const bool is_hidden = supervisor_is == supervisor_state::UNSEEN && pid > 0 && exists(pid);
    const test_state state = ::state_of(table(), test, is_seen || is_hidden);
    return state == test_state::STARTING && has_lost_supervisor() ? test_state::GONE : state;
}

const test_group &stress_run::test_of(size_t record) const {
    return *std::find_if(
        tests.begin(), tests.end(), [record](const test_group &test) { return test.has(record); });
}

const counter_meaning &stress_run::meaning_of(size_t record) const {
    const test_group &test = test_of(record);
    const bool is_fio =
        table().records[test.first].test_letter == static_cast<int32_t>(record_letter::FIO);
    return ::meaning_of(table().records[record], is_fio && record != test.first);
}

const char *name_of_state(const stress_run &run) {
    switch (run.supervisor_is) {
    case supervisor_state::RUNNING:
        return "running";
    case supervisor_state::UNSEEN:
        return "unseen";
    case supervisor_state::GONE:
        return run.is_killed() ? "killed" : "over";
    }
    return "";
}

// Reads the tables first: a process that ends meanwhile is then missing, but no ended process
// counts as running.
run_list find_runs() {
    run_list found;
    std::vector<std::pair<segment, table_copy>> tables;
    for (const segment &candidate : segments_of_table_size()) {
        table_copy copy;
        const table_access access = read_table(candidate, copy);
        if (access == table_access::TABLE)
            tables.emplace_back(candidate, copy);
        else if (access == table_access::DENIED)
            found.denied.push_back(candidate);
    }
    uint32_t unseen = 0;
    const std::vector<process> all = processes_with_segments(unseen);
    for (const auto &[memory, copy] : tables)
        found.runs.push_back(run_of(memory, copy, all, unseen));
    return found;
}

std::optional<stress_run> look_again(const stress_run &run) {
    run_list found = find_runs();
    for (stress_run &each : found.runs)
        if (each.memory.id == run.memory.id && each.supervisor_id() == run.supervisor_id())
            return std::move(each);
    return std::nullopt;
}

bool has_counted_errors(const stress_run &run) {
    const auto &records = run.table().records;
    return std::any_of(records.begin() + 1, records.end(), has_errors);
}

bool has_lost_tests(const stress_run &run) {
    if (run.has_lost_supervisor())
        return run.is_killed();
    return std::any_of(run.tests.begin(), run.tests.end(),
                       [&run](const test_group &test) { return !is_at_work(run.state_of(test)); });
}
