// The tests of a table: the records of each test, its hold word, its state.

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "supervisor/lists/counter_meanings.h"
#include "supervisor/status_table.h"

// A test and its one or two records. The crossover's hold word is in its second record. -F has one
// in each record; the first one counts.
struct test_group {
    size_t first = 0;
    size_t records = 1;
    size_t hold = 0; // the record that has the hold word

    bool has(size_t record) const {
        return record >= first && record < first + records;
    }
};

std::vector<test_group> tests_of(const StatusTable &table, size_t records_used);

// What the words of a record count. `after_fio`: the previous record is the first of -F.
const counter_meaning &meaning_of(const TestRecord &record, bool after_fio);

// One counter of a record with both its names.
struct named_counter {
    const char *field;   // of the record
    const char *meaning; // in words
    int64_t value;
};

std::vector<named_counter> counts_of(const TestRecord &record, const counter_meaning &meaning);
std::vector<named_counter> errors_of(const TestRecord &record, const counter_meaning &meaning);
bool has_errors(const TestRecord &record);

// The record's name in the results list: "sp2 loop", "dram user".
std::string list_name(const TestRecord &record);

enum class test_state : uint8_t {
    STARTING,
    RUNNING,
    HOLDING, // a hold is requested; the test has not seen it yet
    HELD,
    GAVE_UP,
    FINISHED,
    REAPED,
    GONE, // its process has ended and left no mark
};

constexpr std::array STATE_NAMES = {
    "starting", "running", "hold asked", "held", "gave up", "finished", "reaped", "gone",
};
static_assert(STATE_NAMES.size() == static_cast<size_t>(test_state::GONE) + 1);

constexpr const char *name_of(test_state state) {
    return STATE_NAMES[static_cast<size_t>(state)];
}

constexpr bool is_at_work(test_state state) {
    return state <= test_state::HELD;
}

// Reads the words of the test; `alive`: its process exists.
test_state state_of(const StatusTable &table, const test_group &test, bool alive);

// The test's pid in its records, 0 if there is none.
int32_t process_of(const StatusTable &table, const test_group &test);
