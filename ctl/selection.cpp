#include "ctl/selection.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "ctl/text.h"

namespace {

// Two ended runs may have had a supervisor with the same pid: then only the segment identifies
// them.
std::optional<stress_run> find_named(const run_list &found, int64_t number, const char *word,
                                     int &status) {
    std::vector<const stress_run *> named;
    for (const stress_run &run : found.runs)
        if (run.supervisor_id() == number)
            named.push_back(&run);
    if (named.size() == 1)
        return *named[0];
    for (const stress_run &run : found.runs)
        if (run.memory.id == number)
            return run;
    status = WRONG_USE;
    if (named.empty())
        complain("%s: no such run; hk_ctl runs lists them", word);
    else
        complain("%s: %zu runs had that supervisor; give the number of the segment", word,
                 named.size());
    return std::nullopt;
}

// Prefers a run that goes on to those that are over.
std::optional<stress_run> find_only(const run_list &found, int &status) {
    std::vector<const stress_run *> candidates;
    for (const stress_run &run : found.runs)
        if (!run.is_over())
            candidates.push_back(&run);
    if (candidates.empty() && found.runs.size() == 1)
        candidates.push_back(&found.runs[0]);
    if (candidates.size() == 1)
        return *candidates[0];
    status = found.runs.empty() ? NOTHING_THERE : WRONG_USE;
    if (found.runs.empty())
        complain("there is no run%s", found.denied.empty() ? "" : " that this user may read");
    else
        complain("there are %zu runs; name one, as in @%d", found.runs.size(),
                 static_cast<int>(found.runs[0].supervisor_id()));
    return std::nullopt;
}

bool names_run(const char *word, bool plain, int64_t &number) {
    if (word[0] == '@')
        return read_number(word + 1, 0, INT_MAX, number);
    return plain && read_number(word, 0, INT_MAX, number);
}

bool names_test(const counter_meaning &meaning, const char *word) {
    return (meaning.option != nullptr && strcmp(meaning.option, word) == 0) ||
           strcmp(meaning.test, word) == 0;
}

bool is_chosen(const stress_run &run, const test_group &test, const char *word) {
    int64_t record = 0;
    if (read_number(word, 1, TEST_RECORDS, record))
        return test.has(static_cast<size_t>(record));
    return strcmp(word, "all") == 0 || names_test(run.meaning_of(test.first), word);
}

void add_once(std::vector<test_group> &chosen, const test_group &test) {
    const auto is_same = [&test](const test_group &each) { return each.first == test.first; };
    if (std::none_of(chosen.begin(), chosen.end(), is_same))
        chosen.push_back(test);
}

} // namespace

void report_denied(const run_list &found) {
    for (const segment &each : found.denied)
        complain("segment %d may hold a run of user %u: no right to read it", each.id, each.owner);
}

std::optional<stress_run> choose_run(std::span<char *const> &words, bool plain, int &status) {
    const run_list found = find_runs();
    report_denied(found);
    int64_t number = 0;
    if (words.empty() || (words[0][0] != '@' && !plain))
        return find_only(found, status);
    const char *word = words[0];
    words = words.subspan(1);
    if (names_run(word, plain, number))
        return find_named(found, number, word, status);
    complain("%s: a run is named by its supervisor's process, as in @12", word);
    status = WRONG_USE;
    return std::nullopt;
}

bool choose_tests(const stress_run &run, std::span<char *const> words,
                  std::vector<test_group> &chosen) {
    for (const char *word : words) {
        bool found = false;
        for (const test_group &test : run.tests) {
            if (!is_chosen(run, test, word))
                continue;
            add_once(chosen, test);
            found = true;
        }
        if (!found) {
            complain("%s: the run @%d has no such record or test", word,
                     static_cast<int>(run.supervisor_id()));
            return false;
        }
    }
    return true;
}
