// The life of every test process: it locks its memory, opens the log, writes its id, checks its
// stop and hold words before each turn, naps while it is held, marks its end and exits. A test is a
// structure with its state and its unit of work:
//
//     struct receiver {
//         TestRecord &record;  // contains its stop and hold words
//         ...
//         void turn();         // one unit of work; a long one checks `is_held` itself
//     };
//
//     pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern) {
//         return start_test(no_fork, receiver{claim_record(record_letter::RECEIVER), ...});
//     }
//
// The other members are optional and are called in this order:
//
//     void set_up();           // before the first turn; writes PID_STOP if it fails,
//     bool set_up();           // or returns false, see run_test
//     void before_nap();       // before each nap of a hold
//     void after_nap();        // after each nap
//     void end();              // after the stop, before the finished mark
//     void release();          // 5 ms after the mark, or right after it with NAP_BEFORE_MARK
//
//     TestRecord &second_record;                     // gets the same marks as the first one
//     static constexpr bool PID_AFTER_SET_UP = true; // the id is written after set_up
//     static constexpr bool NAP_BEFORE_MARK = true;  // the last nap is before the mark
//     static constexpr int32_t HOLD_NAP_US = ...;    // if not USUAL_HOLD_NAP_US

#pragma once

#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <sys/types.h>
#include <unistd.h>

#include "runtime/record.h"

constexpr int32_t USUAL_HOLD_NAP_US = 50000;
constexpr int32_t SHORT_HOLD_NAP_US = 5000; // the serial receiver and producer resume faster
constexpr int TEST_EXIT_STATUS = 2;         // of a test process that ran to its end

// Forks the process of the test claimed last. Returns the child's id in the supervisor and 0 in the
// child, after it has locked its present pages in memory and opened the system log under the run's
// ident. Returns -1 if fork(2) failed, see note_failed_start.
pid_t fork_test();

// Returns true while the record is held.
inline bool is_held(const TestRecord &record) {
    return shared_word(record.hold) != HOLD_NONE;
}

// Ends a test that cannot continue, after the turn or set-up that calls it. The test remembers it
// itself: a supervisor whose wait(2) fails at that moment takes PID_STOP for its child's id and
// overwrites it, see reap_records.
template <typename Test>
void give_up(Test &test) {
    test.gave_up = true;
    set_shared_word(test.record.pid, PID_STOP);
}

namespace runner_detail {

// Returns true after a stop.
inline bool told_to_stop(const TestRecord &record) {
    return shared_word(record.pid) == PID_STOP;
}

// Acknowledges the hold and naps.
void hold_nap(TestRecord &record, int32_t nap_us);

// Naps at the end of a test: the supervisor gets time to see the mark.
void end_nap();

// The optional constants of a test, or their defaults.
template <typename Test>
constexpr bool PID_LAST = false;
template <typename Test>
requires requires {
    Test::PID_AFTER_SET_UP;
}
constexpr bool PID_LAST<Test> = Test::PID_AFTER_SET_UP;

template <typename Test>
constexpr bool NAP_FIRST = false;
template <typename Test>
requires requires {
    Test::NAP_BEFORE_MARK;
}
constexpr bool NAP_FIRST<Test> = Test::NAP_BEFORE_MARK;

template <typename Test>
constexpr int32_t HOLD_NAP = USUAL_HOLD_NAP_US;
template <typename Test>
requires requires {
    Test::HOLD_NAP_US;
}
constexpr int32_t HOLD_NAP<Test> = Test::HOLD_NAP_US;

template <typename Test>
bool is_over(const Test &test) {
    if constexpr (requires { test.gave_up; })
        if (test.gave_up)
            return true;
    return told_to_stop(test.record);
}

// Writes an id or a marker into the test's records, the second one first.
template <typename Test>
void mark_test(Test &test, int32_t pid) {
    if constexpr (requires { test.second_record; })
        set_shared_word(test.second_record.pid, pid);
    set_shared_word(test.record.pid, pid);
}

// Returns false if the set-up fails.
template <typename Test>
bool set_up_test(Test &test) {
    if constexpr (requires {
                      { test.set_up() } -> std::same_as<bool>;
                  })
        return test.set_up();
    else if constexpr (requires { test.set_up(); })
        test.set_up();
    return true;
}

template <typename Test>
bool begin_test(Test &test) {
    if constexpr (!PID_LAST<Test>)
        mark_test(test, getpid());
    const bool ready = set_up_test(test);
    if constexpr (PID_LAST<Test>)
        mark_test(test, getpid());
    return ready;
}

template <typename Test>
void nap_while_held(Test &test) {
    if constexpr (requires { test.before_nap(); })
        test.before_nap();
    hold_nap(test.record, HOLD_NAP<Test>);
    if constexpr (requires { test.after_nap(); })
        test.after_nap();
}

template <typename Test>
void end_test(Test &test) {
    if constexpr (requires { test.end(); })
        test.end();
    if constexpr (NAP_FIRST<Test>)
        end_nap();
    mark_test(test, PID_FINISHED);
    if constexpr (!NAP_FIRST<Test>)
        end_nap();
    if constexpr (requires { test.release(); })
        test.release();
}

// Runs a test to its end. Returns false if its set-up fails: the record then has PID_STOP and one
// more error.
template <typename Test>
bool run_test(Test &test) {
    if (!begin_test(test)) {
        ++test.record.errors;
        set_shared_word(test.record.pid, PID_STOP);
        return false;
    }
    while (!is_over(test))
        if (is_held(test.record))
            nap_while_held(test);
        else
            test.turn();
    end_test(test);
    return true;
}

} // namespace runner_detail

// Starts a test whose records are claimed. If `no_fork` is not 0, which the option walk never
// passes, it starts nothing and returns `no_fork`. Otherwise it returns the test process's id, or
// -1 if fork failed. If the set-up fails, it also returns 0 in the test process, which continues as
// a second supervisor.
template <typename Test>
pid_t start_test(int no_fork, Test test) {
    if (no_fork != 0)
        return no_fork;
    const pid_t child = fork_test();
    if (child != 0 || !runner_detail::run_test(test))
        return child;
    exit(TEST_EXIT_STATUS);
}
