// What every test process does alike: it is forked, locks its memory, opens the log, writes its id,
// looks at its stop and hold words before each turn, naps while it is held, marks its end and
// exits. A test is a structure of what it remembers, with what it does to its device:
//
//     struct receiver {
//         TestRecord &record;  // holds its stop and hold words
//         ...
//         void turn();         // one unit of work
//     };
//
//     pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern) {
//         return start_test(no_fork, receiver{claim_record(record_letter::RECEIVER), ...});
//     }
//
// All the rest is there only where a test needs it, in this order of a test's life:
//
//     void set_up();           // before the first turn. One that cannot go on gives up
//     bool set_up();           // or returns false, see run_test
//     void before_nap();       // a hold was seen
//     void after_nap();        // it may still be on
//     void end();              // the stop was seen; the record is not marked yet
//     void release();          // 5 ms after the mark
//
//     bool gave_up = false;                          // of a test that may give_up
//     TestRecord &second_record;                     // marked as the first one is
//     static constexpr bool PID_AFTER_SET_UP = true; // the id is written once the device is open
//     static constexpr bool NAP_BEFORE_MARK = true;  // the last nap comes before the mark
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
constexpr int TEST_EXIT_STATUS = 2;         // of every test process that ends by itself

// Forks the process of the test claimed last. Returns the child's id in the supervisor and 0 in the
// child, whose present pages are locked in memory and whose messages go to the system log under the
// run's ident. Returns -1 when fork(2) failed, see note_failed_start.
pid_t fork_test();

// Acknowledges the hold and naps.
void hold_nap(TestRecord &record, int32_t nap_us);

// The nap at the end of a test. After the mark it gives the supervisor time to see it.
void end_nap();

// True once the record says stop.
inline bool told_to_stop(const TestRecord &record) {
    return shared_word(record.pid) == PID_STOP;
}

// True while the record is held.
inline bool is_held(const TestRecord &record) {
    return shared_word(record.hold) != HOLD_NONE;
}

// Ends a test that cannot go on, after the turn or set-up that calls it. The test remembers it
// itself: a supervisor whose wait(2) fails at that moment takes PID_STOP for its child's id and
// overwrites it, see reap_records.
template <typename Test>
void give_up(Test &test) {
    test.gave_up = true;
    set_shared_word(test.record.pid, PID_STOP);
}

// What a test says of itself, or the usual.
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

// Writes an id or a marker into the test's record, its second one first.
template <typename Test>
void mark_test(Test &test, int32_t pid) {
    if constexpr (requires { test.second_record; })
        set_shared_word(test.second_record.pid, pid);
    set_shared_word(test.record.pid, pid);
}

// False when the set-up says so.
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

// Runs a test to its end. Returns false at once when its set-up failed: the record then holds
// PID_STOP and one error more.
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

// Starts a test whose records have been claimed. With `no_fork` not 0, which the option walk never
// passes, it starts nothing and returns `no_fork`: for a caller that only claims. Otherwise it
// returns the test process's id, or -1 when fork failed. It returns in the test process too, 0,
// when the set-up failed: the caller goes on as a second supervisor.
template <typename Test>
pid_t start_test(int no_fork, Test test) {
    if (no_fork != 0)
        return no_fork;
    const pid_t child = fork_test();
    if (child != 0 || !run_test(test))
        return child;
    exit(TEST_EXIT_STATUS);
}
