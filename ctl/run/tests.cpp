#include "ctl/run/tests.h"

#include <algorithm>

#include "supervisor/lists/line_format.h"
#include "supervisor/lists/results_rows.h"

namespace {

bool is_of(const TestRecord &record, record_letter letter) {
    return record.test_letter == static_cast<int32_t>(letter);
}

// Only the last record of a crossover has its kind code.
bool begins_crossover_pair(const TestRecord &record, const TestRecord &next) {
    return is_of(record, record_letter::CROSSOVER) && record.kind_code == 0 &&
           is_of(next, record_letter::CROSSOVER);
}

bool begins_fio_pair(const TestRecord &record, const TestRecord &next) {
    return is_of(record, record_letter::FIO) && is_of(next, record_letter::RECEIVER);
}

test_group group_at(const StatusTable &table, size_t index, size_t records_used) {
    if (index + 1 >= records_used)
        return {index, 1, index};
    const TestRecord &record = table.records[index];
    const TestRecord &next = table.records[index + 1];
    if (begins_crossover_pair(record, next))
        return {index, 2, index + 1};
    if (begins_fio_pair(record, next))
        return {index, 2, index};
    return {index, 1, index};
}

bool any_pid(const StatusTable &table, const test_group &test, int32_t marker) {
    for (size_t i = test.first; i < test.first + test.records; ++i)
        if (table.records[i].pid == marker)
            return true;
    return false;
}

void add(std::vector<named_counter> &counters, const char *field, const char *meaning,
         int64_t value) {
    if (meaning != nullptr)
        counters.push_back({field, meaning, value});
}

} // namespace

std::vector<test_group> tests_of(const StatusTable &table, size_t records_used) {
    std::vector<test_group> tests;
    for (size_t index = 1; index < records_used; index += tests.back().records)
        tests.push_back(group_at(table, index, records_used));
    return tests;
}

const counter_meaning &meaning_of(const TestRecord &record, bool after_fio) {
    if (after_fio)
        return SECOND_FIO_MEANING;
    for (const counter_meaning &row : COUNTER_MEANINGS)
        if (is_of(record, row.letter))
            return row;
    return COUNTER_MEANINGS[0]; // a table has no other letter
}

std::vector<named_counter> counts_of(const TestRecord &record, const counter_meaning &meaning) {
    std::vector<named_counter> counters;
    add(counters, "write_count", meaning.write_count, record.write_count);
    add(counters, "read_count", meaning.read_count, record.read_count);
    add(counters, "prev_read_count", meaning.prev_read_count, record.prev_read_count);
    return counters;
}

std::vector<named_counter> errors_of(const TestRecord &record, const counter_meaning &meaning) {
    std::vector<named_counter> counters;
    add(counters, "errors", meaning.errors, record.errors);
    add(counters, "errors2", meaning.errors2, record.errors2);
    add(counters, "errors3", meaning.errors3, record.errors3);
    return counters;
}

bool has_errors(const TestRecord &record) {
    return record.errors != 0 || record.errors2 != 0 || record.errors3 != 0;
}

// Takes the name from the line of the list: "sp2 loop wrote 9 ...", without the kind code.
std::string list_name(const TestRecord &record) {
    char line[256];
    static_assert(sizeof line >= longest_line(RESULTS_ROWS));
    const int length = format_line(RESULTS_ROWS, record, line);
    if (length == 0)
        return "panel";
    std::string name(line, static_cast<size_t>(length));
    name.resize(std::min(name.find(" errors "), name.size()));
    for (int words = 0; words < 4; ++words) // two counts and their names in the list
        name.resize(std::min(name.rfind(' '), name.size()));
    const size_t kind_end = name.find(' ', sizeof "<LI> " - 1);
    name.erase(0, std::min(kind_end, name.size() - 1) + 1);
    std::replace(name.begin(), name.end(), '\0', '?'); // a device that could not be opened
    return name;
}

int32_t process_of(const StatusTable &table, const test_group &test) {
    const int32_t own = table.records[test.hold].pid;
    return own != PID_NONE ? own : table.records[test.first].pid;
}

// Of a test with two records the supervisor marks only one, which may be either.
test_state state_of(const StatusTable &table, const test_group &test, bool alive) {
    const int32_t hold = table.records[test.hold].hold;
    if (alive && hold == HOLD_NONE)
        return test_state::RUNNING;
    if (alive)
        return hold == HOLD_ACKNOWLEDGED ? test_state::HELD : test_state::HOLDING;
    if (any_pid(table, test, PID_REAPED))
        return test_state::REAPED;
    if (any_pid(table, test, PID_FINISHED))
        return test_state::FINISHED;
    if (any_pid(table, test, PID_STOP))
        return test_state::GAVE_UP;
    return process_of(table, test) == PID_NONE ? test_state::STARTING : test_state::GONE;
}
