// What hk_ctl makes of a table: which segments it takes for one, which records belong together, and
// counters that move while it looks.

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/commands/commands.h"
#include "ctl/commands/ending.h"
#include "ctl/run/processes.h"
#include "ctl/run/segment.h"
#include "ctl/run/tests.h"
#include "ctl/text.h"
#include "ctl/watch/frame.h"
#include "supervisor/plan/kind_codes.h"

namespace {

// A private segment of this process; gone with the case.
class own_segment {
public:
    explicit own_segment(const StatusTable &contents, bool swapped = false)
        : id(shmget(IPC_PRIVATE, sizeof contents, IPC_CREAT | 0600)) {
        void *address = shmat(id, nullptr, 0);
        auto *words = static_cast<uint32_t *>(address);
        memcpy(words, &contents, sizeof contents);
        for (size_t i = 0; swapped && i < sizeof contents / sizeof *words; ++i)
            words[i] = __builtin_bswap32(words[i]);
        shmdt(address);
    }
    own_segment(const own_segment &) = delete;
    own_segment &operator=(const own_segment &) = delete;
    ~own_segment() {
        shmctl(id, IPC_RMID, nullptr);
    }

    segment found() const {
        for (const segment &each : segments_of_table_size())
            if (each.id == id)
                return each;
        return {};
    }

private:
    int id;
};

TestRecord record_of(record_letter letter, int32_t pid, int32_t kind) {
    TestRecord record = {};
    record.test_letter = static_cast<int32_t>(letter);
    record.pid = pid;
    record.kind_code = kind;
    return record;
}

StatusTable good_table() {
    StatusTable table = {};
    table.records[0].pid = getpid();
    table.records[1] = record_of(record_letter::DRAM, 4000, 8);
    table.records[1].hold = HOLD_ACKNOWLEDGED;
    table.records[1].read_count = 0x01020304;
    return table;
}

TEST(Table, is_read_in_either_byte_order) {
    for (const bool swapped : {false, true}) {
        const own_segment memory(good_table(), swapped);
        table_copy copy;
        ASSERT_EQ(read_table(memory.found(), copy), table_access::TABLE) << swapped;
        EXPECT_EQ(copy.swapped, swapped);
        EXPECT_EQ(copy.table.records[1].read_count, 0x01020304U);
        EXPECT_EQ(copy.table.records[1].pid, 4000);
        EXPECT_EQ(memory.found().owner, geteuid());
        EXPECT_NEAR(static_cast<double>(memory.found().created), static_cast<double>(time(nullptr)),
                    60);
        hold_words words(memory.found(), copy.swapped);
        words.set(1, HOLD_REQUESTED);
        EXPECT_EQ(words.get(1), HOLD_REQUESTED);
        ASSERT_EQ(read_table(memory.found(), copy), table_access::TABLE);
        EXPECT_EQ(copy.table.records[1].hold, HOLD_REQUESTED);
    }
}

TEST(Table, is_none_where_a_word_cannot_be_a_record_s) {
    const struct {
        const char *what;
        std::function<void(StatusTable &)> change;
    } cases[] = {
        {"not its creator's", [](StatusTable &table) { table.records[0].pid = getpid() + 1; }},
        {"empty", [](StatusTable &table) { table = {}; }},
        {"letter", [](StatusTable &table) { table.records[1].test_letter = 'Z'; }},
        {"hold", [](StatusTable &table) { table.records[1].hold = 3; }},
        {"kind code", [](StatusTable &table) { table.records[49].kind_code = KIND_END; }},
        {"marker", [](StatusTable &table) { table.records[2].pid = -2; }},
        {"supervisor counts", [](StatusTable &table) { table.records[0].read_count = 1; }},
    };
    for (const auto &c : cases) {
        StatusTable table = good_table();
        c.change(table);
        const own_segment memory(table);
        table_copy copy;
        EXPECT_EQ(read_table(memory.found(), copy), table_access::FOREIGN) << c.what;
    }
}

TEST(Process, of_the_same_number_that_started_at_another_time_is_another) {
    const own_segment memory(good_table());
    void *address = shmat(memory.found().id, nullptr, 0);
    const pid_t child = fork(); // it has the segment attached too
    if (child == 0)
        for (;;)
            (void)pause();
    bool is_found = false;
    uint32_t unseen = 0;
    for (process each : processes_with_segments(unseen)) {
        if (each.pid != child)
            continue;
        is_found = each.started > 0;
        EXPECT_TRUE(is_running(each));
        ++each.started;
        EXPECT_FALSE(is_running(each));
        stress_run run; // its test has ended since the look
        run.test_processes = {each};
        testing::internal::CaptureStdout();
        EXPECT_TRUE(end_what_is_left(run));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    }
    EXPECT_TRUE(is_found);
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    (void)shmdt(address);
}

TEST(Tests, of_two_records_are_told_from_two_of_one) {
    StatusTable table = good_table();
    table.records[2] = record_of(record_letter::CROSSOVER, 10, 0);
    table.records[3] = record_of(record_letter::CROSSOVER, 10, 5);
    table.records[4] = record_of(record_letter::CROSSOVER, 11, 5);
    table.records[5] = record_of(record_letter::CROSSOVER, 12, 5);
    table.records[6] = record_of(record_letter::FIO, 13, 10);
    table.records[7] = record_of(record_letter::RECEIVER, 13, 1);
    const auto tests = tests_of(table, records_in_use(table));
    const std::vector<std::array<size_t, 3>> expected = {
        {1, 1, 1}, {2, 2, 3}, {4, 1, 4}, {5, 1, 5}, {6, 2, 6}};
    ASSERT_EQ(tests.size(), expected.size());
    for (size_t i = 0; i < tests.size(); ++i)
        EXPECT_EQ((std::array{tests[i].first, tests[i].records, tests[i].hold}), expected[i]) << i;
}

TEST(Tests, end_between_two_looks_as_their_marks_say) {
    StatusTable table = good_table();
    table.records[2] = record_of(record_letter::CROSSOVER, 10, 0);
    table.records[3] = record_of(record_letter::CROSSOVER, 10, 5);
    const test_group pair = {2, 2, 3};
    EXPECT_EQ(state_of(table, pair, true), test_state::RUNNING);
    EXPECT_EQ(state_of(table, pair, false), test_state::GONE);
    table.records[3].pid = PID_STOP;
    EXPECT_EQ(state_of(table, pair, false), test_state::GAVE_UP);
    table.records[3].pid = PID_FINISHED;
    EXPECT_EQ(state_of(table, pair, false), test_state::FINISHED);
    table.records[2].pid = PID_REAPED; // the supervisor may mark either record
    EXPECT_EQ(state_of(table, pair, false), test_state::REAPED);
}

int show(std::string word) {
    char *words[] = {word.data()};
    testing::internal::CaptureStdout();
    return show_run({}, words);
}

TEST(Show, prints_every_counter_and_the_samples_of_each_record) {
    StatusTable table = good_table();
    table.records[1].errors = 9;
    table.records[2] = record_of(record_letter::CROSSOVER, 4001, 5);
    table.records[2].write_count = 12;
    table.records[2].errors2 = 2;
    table.records[2].hist[7] = {14, 255};
    const own_segment memory(table);
    const segment found = memory.found();
    EXPECT_EQ(show(text_of("@%d", found.id)), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              text_of("run @%d, over, since %s UTC, segment %d, options -\n", getpid(),
                      date_text(found.created).c_str(), found.id) +
                  R"(1 dram user: dram (-D), gone, pid 4000, kind 8
    write_count                0  blocks tested
    read_count          16909060  blocks mapped
    errors                     9  bad blocks and failed maps  <<<
2 sp0 loop: crossover (-E), gone, pid 4001, kind 5
    write_count               12  frames written
    read_count                 0  frames read and good
    errors                     0  failed reads
    errors2                    2  bad frames, line faults, and silences in runs of four or more  <<<
    errors3                    0  time-outs
    hist       14,255 0,0 0,0 0,0 0,0 0,0 0,0 0,0  frame length, first bad byte; newest first
)");
    const own_segment other(table);
    testing::internal::CaptureStderr();
    EXPECT_EQ(show(text_of("@%d", getpid())), 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("2 runs had that supervisor; give the number of the segment\n"),
              std::string::npos)
        << errors;
}

stress_run run_with(const StatusTable &table) {
    stress_run run;
    run.copy.table = table;
    run.records_used = records_in_use(table);
    run.tests = tests_of(table, run.records_used);
    return run;
}

TEST(History, has_the_right_rate_when_a_counter_wraps_and_says_which_errors_moved) {
    StatusTable table = good_table();
    history past;
    table.records[1].read_count = 0xFFFFFFF6;
    past.add(run_with(table), 1000);
    table.records[1].read_count = 10;
    table.records[1].errors = 1;
    past.add(run_with(table), 3000);
    EXPECT_DOUBLE_EQ(past.of(1).newest_rate(), 10.0);
    EXPECT_TRUE(past.of(1).errors_moved);
    past.add(run_with(table), 4000);
    EXPECT_FALSE(past.of(1).errors_moved);
    EXPECT_EQ(sparkline(past.of(1), 5, false), "#_");
}

// Columns of a line without its styles.
size_t width_of(const std::string &line) {
    size_t width = 0;
    for (size_t at = 0; at < line.size(); ++width) {
        while (at < line.size() && line[at] == '\033')
            at = line.find('m', at) + 1;
        if (at == line.size())
            break;
        at += utf8_length(line, at);
    }
    return width;
}

TEST(Frame, fits_every_size_and_shows_the_selected_record) {
    StatusTable table = good_table();
    for (size_t i = 2; i <= 49; ++i)
        table.records[i] = record_of(record_letter::DRAM, 1, 8);
    const stress_run run = run_with(table);
    history past;
    past.add(run, 1000);
    past.add(run, 2000);
    for (const screen_size size : {screen_size{80, 24}, {40, 10}, {1, 1}, {200, 60}, {63, 5}}) {
        const auto lines = draw({run, past, 49, "", true}, size);
        EXPECT_LE(lines.size(), size.rows);
        std::string all;
        for (const std::string &line : lines) {
            EXPECT_LE(width_of(line), size.columns) << line;
            all += line;
        }
        EXPECT_EQ(all.find("\033[7m 49 dram user") != std::string::npos, size.columns >= 40)
            << size.columns;
    }
}

TEST(Text, of_any_length_is_whole) {
    for (const size_t length : {0U, 1023U, 1024U, 5000U}) {
        const std::string given(length, 'x');
        EXPECT_EQ(text_of("%s-%d", given.c_str(), 7), given + "-7");
    }
}

TEST(Text, printable_keeps_utf8_and_nothing_that_a_terminal_obeys) {
    EXPECT_EQ(printable("a\033[2J\n\xff é ▁ \xc2\x9b \xc0\xaf \xed\xa0\x80"),
              "a?[2J?? é ▁ ? ?? ???");
    EXPECT_EQ(printable("\xef\xbf\xbd \xef\xbf\xbe \xef\xbf\xbf"), "\xef\xbf\xbd ??? ???")
        << "XML allows the first one alone";
}

TEST(Text, of_a_number_is_read_whatever_failed_before) {
    int64_t number = 0;
    errno = ERANGE;
    EXPECT_TRUE(read_number("12", 1, 12, number));
    EXPECT_EQ(number, 12);
}

} // namespace
