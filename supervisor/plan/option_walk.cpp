// Reads the command line by the option table: the part that is the same for every option.

#include "supervisor/plan/option_walk.h"

#include <algorithm>
#include <unistd.h>

#include "runtime/number.h"
#include "runtime/print.h"
#include "supervisor/plan/option_table.h"
#include "supervisor/status_table.h"

namespace {

constexpr useconds_t START_PAUSE_US = 50000; // lets a new test write its pid before the next starts

// Returns true if the table has room for `records` more records. If not, reports the dropped
// option.
bool records_fit(int32_t records, option_letter letter, const char *argument) {
    if (records_left() >= records)
        return true;
    print(STDERR_FILENO,
          "hk_stress: -%c%.80s dropped: needs %d record(s) of the status table, %d left\n",
          static_cast<char>(letter), argument, records, records_left());
    return false;
}

void hold(TestRecord &record) {
    if (shared_word(record.hold) == HOLD_NONE)
        set_shared_word(record.hold, HOLD_REQUESTED);
}

void write_kind(const option_row &row, const char *argument) {
    TestRecord &last = last_claimed_record();
    switch (row.rule) {
    case kind_rule::NONE:
    case kind_rule::BY_PORT: // the start writes it
        break;
    case kind_rule::LAST_RECORD:
        last.kind_code = row.kinds[0];
        break;
    case kind_rule::EACH_RECORD:
        (&last)[-1].kind_code = row.kinds[0];
        last.kind_code = row.kinds[1];
        break;
    case kind_rule::BY_SELECTOR:
        last.kind_code = number_of(argument) == 1 ? row.kinds[0] : row.kinds[1];
        break;
    }
}

// Holds a held test before its start: otherwise it could first run a whole turn, for DRAM seconds.
// An option that starts no test still holds and marks the test before it.
void start(const option_row &row, int no_fork, int32_t records, const char *argument) {
    const bool is_held = row.state == start_state::HELD;
    if (is_held && records > 0)
        hold(status_table->records[static_cast<size_t>(record_count) + 1]);
    if (records > 1)
        ++bogus_count;
    row.routine(no_fork, argument);
    if (is_held)
        hold(last_claimed_record());
    write_kind(row, argument);
}

} // namespace

void apply_option(const option_row &row, int no_fork, const char *argument) {
    const int32_t records = row.needs != nullptr ? row.needs(argument) : row.records;
    const bool starts = records != NOT_NOW && records_fit(records, row.letter, argument);
    if (starts)
        start(row, no_fork, records, argument);
    if (no_fork != 0)
        return;
    if (row.pause == start_pause::ALWAYS || (starts && row.pause == start_pause::AFTER_START))
        (void)usleep(START_PAUSE_US);
}

void print_usage(const char *program) {
    print(STDOUT_FILENO,
          "Options...<%s>\n"
          "-L for spifio   -F for fio\n"
          "-h for hdlc -b9600 for 9600 baud\n"
          "-S1 datakey  -S2 eeprom -D dram -K keyboard/display \n"
          "-Exy serial test for port x to y and y to x\n"
          "---------example:\n"
          "set led to 1sec, logging to 10sec\n"
          "crossover for SP2 and SP8, hdlc loopback on SP5s\n"
          "%.400s -d1 -l10 -E28 -h -E55\n",
          OPTION_STRING, program);
}

void walk_options(int argc, char **argv) {
    const std::span<const option_row> table = option_table();
    for (int letter; (letter = getopt(argc, argv, OPTION_STRING)) != -1;) {
        const auto row = std::find_if(table.begin(), table.end(), [letter](const option_row &each) {
            return static_cast<int>(each.letter) == letter;
        });
        if (row != table.end())
            apply_option(*row, 0, optarg != nullptr ? optarg : "");
    }
}
