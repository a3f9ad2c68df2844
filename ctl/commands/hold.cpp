// hk_ctl hold, hk_ctl release: write the hold words of tests and wait until the tests obey. A test
// reads its word once in each turn, so the wait is as long as its longest turn and some seconds
// more.

#include <algorithm>
#include <cstdio>

#include "ctl/commands/commands.h"
#include "ctl/selection.h"
#include "ctl/text.h"
#include "runtime/clock.h"

namespace {

constexpr int32_t LOOK_US = 10000;
constexpr int64_t BUSY_MS = 5000;  // more than a turn takes: the machine has other work
constexpr int64_t STAYS_MS = 1000; // a word that is still 0 after this stays 0
constexpr int64_t MOVING_MS = 100; // the same for a test that counts again
constexpr int REPEATS = 3; // of a release: the test may acknowledge a hold at the same moment
constexpr int32_t FOLLOW_US = 20000;

enum class outcome { OBEYED, ENDED, REFUSED };

struct order {
    const stress_run &run;
    hold_words &words;
    const test_group &test;
    TestRecord before; // as it was when the word was written

    bool is_held() const {
        return words.get(test.hold) != HOLD_NONE;
    }
    int64_t limit_ms() const {
        return int64_t{run.meaning_of(test.first).turn_s} * 1000 + BUSY_MS;
    }
    bool has_ended() const {
        const int32_t pid = words.record(test.hold).pid;
        const auto &all = run.test_processes;
        const auto own = std::find_if(all.begin(), all.end(),
                                      [pid](const process &each) { return each.pid == pid; });
        return pid < 0 || (own != all.end() && !is_running(*own));
    }
    bool counts_again() const {
        const TestRecord now = words.record(test.hold);
        return now.read_count != before.read_count || now.write_count != before.write_count;
    }
};

void clear(const order &given) {
    for (size_t i = given.test.first; i < given.test.first + given.test.records; ++i)
        given.words.set(i, HOLD_NONE);
}

void write_hold(const order &given) {
    if (!given.is_held())
        given.words.set(given.test.hold, HOLD_REQUESTED);
}

outcome await_hold(const order &given) {
    const int64_t latest = now_ms() + given.limit_ms();
    for (;; sleep_us(LOOK_US)) {
        if (given.has_ended())
            return outcome::ENDED;
        if (given.words.get(given.test.hold) == HOLD_ACKNOWLEDGED)
            return outcome::OBEYED;
        if (now_ms() >= latest)
            return outcome::REFUSED;
    }
}

outcome await_release(const order &given) {
    int64_t cleared = now_ms();
    for (int repeats = 0;; sleep_us(LOOK_US)) {
        if (given.has_ended())
            return outcome::ENDED;
        if (given.is_held()) {
            if (++repeats > REPEATS)
                return outcome::REFUSED;
            clear(given);
            cleared = now_ms();
        }
        const int64_t calm_ms = now_ms() - cleared;
        if (calm_ms >= STAYS_MS || (calm_ms >= MOVING_MS && given.counts_again()))
            return outcome::OBEYED;
    }
}

struct hold_action {
    const char *done;
    void (*write)(const order &given);
    outcome (*await)(const order &given);
    const char *refused;
};

constexpr hold_action HOLD = {"held", write_hold, await_hold, "has not acknowledged the hold"};
constexpr hold_action RELEASE = {"released", clear, await_release,
                                 "holds itself again: it cannot open its port"};

bool report(const order &given, const hold_action &action, outcome result) {
    const size_t record = given.test.hold;
    const std::string name = list_name(given.run.table().records[record]);
    if (result == outcome::OBEYED) {
        printf("%s: %zu %s\n", action.done, record, name.c_str());
        return true;
    }
    complain("%zu %s %s", record, name.c_str(),
             result == outcome::ENDED ? "has ended" : action.refused);
    return false;
}

int carry_out(const stress_run &run, const std::vector<test_group> &tests,
              const hold_action &action) {
    hold_words words(run.memory, run.copy.swapped);
    if (!words.is_attached()) {
        complain("segment %d of user %u: no right to write it", run.memory.id, run.memory.owner);
        return WRONG_USE;
    }
    std::vector<order> orders;
    orders.reserve(tests.size());
    for (const test_group &test : tests)
        orders.push_back({run, words, test, words.record(test.hold)});
    for (const order &each : orders)
        if (is_at_work(run.state_of(each.test)))
            action.write(each);
    int status = DONE;
    for (const order &each : orders) {
        const bool works = is_at_work(run.state_of(each.test));
        if (!report(each, action, works ? action.await(each) : outcome::ENDED))
            status = SOMETHING_WRONG;
    }
    return status;
}

int change_tests(command_words words, const hold_action &action) {
    int status = DONE;
    const auto run = choose_run(words, false, status);
    if (!run)
        return status;
    if (words.empty()) {
        complain("name the tests: numbers of records, options, names, or all");
        return WRONG_USE;
    }
    if (run->records_used == 1)
        return NOTHING_THERE;
    std::vector<test_group> tests;
    if (!choose_tests(*run, words, tests))
        return WRONG_USE;
    return carry_out(*run, tests, action);
}

void release_held(const segment &memory, const table_copy &copy) {
    hold_words words(memory, copy.swapped);
    if (!words.is_attached())
        return;
    for (size_t record = 1; record < TABLE_RECORDS; ++record)
        if (words.get(record) != HOLD_NONE)
            words.set(record, HOLD_NONE);
}

// For a board that holds no test: releases tests as they start.
[[noreturn]] void release_for_ever() {
    for (;; sleep_us(FOLLOW_US))
        for (const segment &memory : segments_of_table_size()) {
            table_copy copy;
            if (read_table(memory, copy) == table_access::TABLE)
                release_held(memory, copy);
        }
}

} // namespace

int hold_tests(const command_options &, command_words words) {
    return change_tests(words, HOLD);
}

int release_tests(const command_options &options, command_words words) {
    if (options.follow && words.empty())
        release_for_ever();
    if (options.follow) {
        complain("release --follow releases all tests of all runs and takes no names");
        return WRONG_USE;
    }
    return change_tests(words, RELEASE);
}
