// The lines that an operator reads, for every letter: results list and status report.

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "supervisor/results_log.h"
#include "supervisor/settings.h"
#include "supervisor/status_report.h"
#include "supervisor/unique_fd.h"
#include "tests/table_fixture.h"

namespace {

// Every word its own value, so that two exchanged ones show.
TestRecord distinct_record(char letter) {
    TestRecord r = {};
    r.pid = 321;
    r.unit = 5;
    r.test_letter = letter;
    r.read_count = 1100;
    r.write_count = 2200;
    r.prev_write_count = 3300;
    r.prev_read_count = 1000;
    r.errors = 55;
    r.errors2 = 66;
    r.errors3 = 77;
    r.hist_next = 3;
    for (int32_t slot = 0; slot < RING_SLOTS; ++slot)
        r.hist[static_cast<size_t>(slot)] = {10 + slot, 20 + slot};
    r.hold = 2;
    r.kind_code = 9;
    return r;
}

std::string results_line(const TestRecord &record) {
    char line[RESULTS_LINE_MAX];
    const int length = format_results_line(record, line);
    return {line, static_cast<size_t>(length)};
}

std::string report_line(const TestRecord &record) {
    char line[REPORT_LINE_MAX];
    const int length = format_report_line(record, line);
    return {line, static_cast<size_t>(length)};
}

TEST(ResultsLines, stand_as_the_log_s_readers_expect_them) {
    struct {
        char letter;
        const char *line;
    } const cases[] = {
        {'N', "<LI> 9 sp5 loop wrote 2200 read 1100 errors 66,55,77 hist 12,22 11,21 10,20 17,27 "
              "16,26\n"},
        {'E', "<LI> 9 sp5 echo wrote 2200 read 1100 errors 66,55,0 hist 12,22 11,21 10,20 17,27 "
              "16,26\n"},
        {'P', "<LI> 9 sp5 produce wrote 2200 verify 2200 errors 66,77,55 hist 0,0 0,0 0,0 0,0 "
              "0,0\n"},
        {'C', "<LI> 9 sp5 consume read 1100 verify 1000 errors 66,77,55 hist 12,22 11,21 10,20 "
              "17,27 16,26\n"},
        {'S', "<LI> 9 eeprom spi wrote 2200 read 1100 errors 66,55,0 hist 0,0 0,0 0,0 0,0 0,0\n"},
        {'F', "<LI> 9 FIOloop sp5s wrote 2200 read 1000 errors 66,77,55 hist 12,22 11,21 10,20 "
              "17,27 16,26\n"},
        {'L', "<LI> 9 SpiFIOloop spBs wrote 2200 read 1100 errors 66,77,0 hist 12,22 11,21 10,20 "
              "17,27 16,26\n"},
        {'Y', "<LI> 9 filesys opt wrote 2200 read 1100 errors 55,0,0 hist 0,0 0,0 0,0 0,0 0,0\n"},
        {'M', "<LI> 9 bbsram file_copy wrote 2200 read 1100 errors 55,0,0 hist 0,0 0,0 0,0 0,0 "
              "0,0\n"},
        {'D', "<LI> 9 dram user alloc 1100 test 2200 errors 55,0,0 hist 0,0 0,0 0,0 0,0 0,0\n"},
    };
    for (const auto &c : cases) {
        TestRecord record = distinct_record(c.letter);
        if (c.letter == 'L')
            record.unit = 'B';
        EXPECT_EQ(results_line(record), c.line);
    }
}

TEST(ResultsLines, name_the_datakey_for_unit_1_and_print_counters_signed) {
    TestRecord record = distinct_record('S');
    record.unit = 1;
    EXPECT_EQ(results_line(record).substr(0, 14), "<LI> 9 Datakey");
    record = distinct_record('D');
    record.read_count = 0xFFFFFFFF;
    EXPECT_EQ(results_line(record).substr(0, 27), "<LI> 9 dram user alloc -1 t");
}

TEST(ResultsLines, are_not_written_for_the_panel_or_an_unknown_letter) {
    EXPECT_EQ(results_line(distinct_record(0)), "");
    EXPECT_EQ(results_line(distinct_record('Z')), "");
}

class StatusReport : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        last_report_time = {100, 900000};
        report_start_time = {104, 400000}; // 3500 ms later, 4 in whole seconds
    }
};

TEST_F(StatusReport, lines_stand_as_the_operator_expects_them) {
    struct {
        char letter;
        const char *line;
    } const cases[] = {
        {'E', "\nsp5, pid  321 echo   , wrote 00000898, read 0000044c, errors 0037"},
        {'P', "\nsp5, pid  321 produce, wrote 00000898, errors 0037"},
        {'C', "\nsp5, pid  321 consume,               , read 0000044c, errors 0037       285 bps"},
        {'S', "\n    pid  321 spi rom, wrote 00000898, read 0000044c, errors 0037"},
        {'F', "\nsp5s,pid  321 FIOloop, wrote 00000898, read 0000044c, errors 42 4d[12 22][11 "
              "21][10 20]"},
        {'L', "\nspBs,pid  321 SpiFIOloop, wrote 00000898, read 0000044c, errors 42 4d[12 22][11 "
              "21][10 20]"},
        {'Y', "\n     pid  321 filesys, wrote 00000898, read 0000044c, errors 0037       250 "},
        {'M', "\n     pid  321 file copy,  read 0000044c, errors 0037         4 "},
        {'D', "\n     pid  321 dram   , alloc 0000044c, test 00000898, errors 0037       250 "},
        {'N', ""},
        {0, ""},
    };
    for (const auto &c : cases) {
        TestRecord record = distinct_record(c.letter);
        if (c.letter == 'L')
            record.unit = 'B';
        EXPECT_EQ(report_line(record), c.line);
    }
}

TEST_F(StatusReport, rates_are_0_where_there_is_no_time_to_divide_by) {
    report_start_time = {100, 900999}; // the same millisecond
    EXPECT_NE(report_line(distinct_record('C')).find("errors 0037         0 bps"),
              std::string::npos);
    EXPECT_NE(report_line(distinct_record('Y')).find("errors 0037         0 "), std::string::npos);
    report_start_time = {99, 0}; // the clock was set back
    EXPECT_NE(report_line(distinct_record('C')).find("errors 0037         0 bps"),
              std::string::npos);
}

TEST_F(StatusReport, a_counter_that_went_back_wraps_in_32_bits) {
    TestRecord record = distinct_record('C');
    record.read_count = 0;
    record.prev_read_count = 1;
    // 0xFFFFFFFF characters of 10 bits in 3.5 s
    EXPECT_NE(report_line(record).find("12271335128 bps"), std::string::npos)
        << report_line(record);
}

// What status_report writes to standard output.
std::string written_report() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    const unique_fd saved(dup(STDOUT_FILENO));
    EXPECT_GE(dup2(writer.get(), STDOUT_FILENO), 0);
    status_report();
    EXPECT_GE(dup2(saved.get(), STDOUT_FILENO), 0);
    writer.reset();
    std::array<char, 8192> text;
    const ssize_t length = read(reader.get(), text.data(), text.size());
    return {text.data(), static_cast<size_t>(length)};
}

TEST_F(StatusReport, shows_the_counted_processes_only_and_remembers_their_counters) {
    for (const char letter : {'P', 'N', 'S', 'P'})
        claim_record(letter);
    process_count = 3; // one record has no process of its own
    for (int i = 1; i <= 4; ++i) {
        record(i).read_count = static_cast<uint32_t>(10 * i);
        record(i).write_count = static_cast<uint32_t>(i);
    }
    EXPECT_EQ(written_report(), "\nsp0, pid    0 produce, wrote 00000001, errors 0000"
                                "\n    pid    0 spi rom, wrote 00000003, read 0000001e, errors 0000"
                                "\n");
    EXPECT_EQ(record(2).prev_read_count, 20u);
    EXPECT_EQ(record(2).prev_write_count, 2u);
    EXPECT_EQ(record(4).prev_read_count, 0u) << "not shown, not touched";
}

TEST_F(StatusReport, of_crossover_tests_alone_is_a_single_line_break) {
    claim_record('N');
    process_count = 1;
    EXPECT_EQ(written_report(), "\n");
}

TEST_F(StatusReport, of_a_full_table_of_the_longest_lines_is_whole) {
    for (int i = 1; i <= TEST_RECORDS; ++i) {
        TestRecord &r = claim_record('L');
        r.pid = INT32_MAX;
        r.errors2 = r.errors3 = -1;
        r.read_count = r.write_count = UINT32_MAX;
        r.unit = 'B';
        r.hist.fill({INT32_MIN, INT32_MIN});
    }
    process_count = TEST_RECORDS;
    const std::string line = report_line(record(1));
    EXPECT_EQ(written_report().size(), TEST_RECORDS * line.size() + 1);
}

} // namespace
