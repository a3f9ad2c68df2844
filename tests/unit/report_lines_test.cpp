// The lines that an operator reads, for every letter: results list and status report.

#include <gtest/gtest.h>
#include <string>

#include "supervisor/lists/rates.h"
#include "supervisor/lists/results_log.h"
#include "supervisor/lists/status_report.h"
#include "tests/support/table_fixture.h"

namespace {

// Every word its own value, so that two exchanged ones show.
TestRecord distinct_record(char letter, int32_t unit = 5) {
    TestRecord r = {};
    r.pid = 321;
    r.unit = unit;
    r.test_letter = letter;
    r.read_count = 1100;
    r.write_count = 0xFFFFFFFF - 7;
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

class StatusReport : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        last_report_time = {100, 900000};
        report_start_time = {104, 400000}; // 3500 ms later, 4 in whole seconds
    }
};

constexpr char SAMPLES[] = " hist 12,22 11,21 10,20 17,27 16,26\n";
constexpr char NO_SAMPLES[] = " hist 0,0 0,0 0,0 0,0 0,0\n";

// Counters are signed in the list and hexadecimal in the report; neither shows the panel.
TEST_F(StatusReport, its_lines_and_those_of_the_results_list_have_the_form_that_readers_expect) {
    struct {
        char letter;
        int32_t unit;
        const char *listed;
        const char *samples;
        const char *reported;
    } const cases[] = {
        {'N', 5, "<LI> 9 sp5 loop wrote -8 read 1100 errors 66,55,77", SAMPLES, ""},
        {'E', 5, "<LI> 9 sp5 echo wrote -8 read 1100 errors 66,55,0", SAMPLES,
         "\nsp5, pid  321 echo   , wrote fffffff8, read 0000044c, errors 0037"},
        {'P', 5, "<LI> 9 sp5 produce wrote -8 verify -8 errors 66,77,55", NO_SAMPLES,
         "\nsp5, pid  321 produce, wrote fffffff8, errors 0037"},
        {'C', 5, "<LI> 9 sp5 consume read 1100 verify 1000 errors 66,77,55", SAMPLES,
         "\nsp5, pid  321 consume,               , read 0000044c, errors 0037       285 bps"},
        {'S', 1, "<LI> 9 Datakey spi wrote -8 read 1100 errors 66,55,0", NO_SAMPLES,
         "\n    pid  321 spi key, wrote fffffff8, read 0000044c, errors 0037"},
        {'S', 2, "<LI> 9 eeprom spi wrote -8 read 1100 errors 66,55,0", NO_SAMPLES,
         "\n    pid  321 spi rom, wrote fffffff8, read 0000044c, errors 0037"},
        {'F', 5, "<LI> 9 FIOloop sp5s wrote -8 read 1000 errors 66,77,55", SAMPLES,
         "\nsp5s,pid  321 FIOloop, wrote fffffff8, read 0000044c, errors 42 4d[12 22][11 21]"
         "[10 20]"},
        {'L', 'B', "<LI> 9 SpiFIOloop spBs wrote -8 read 1100 errors 66,77,0", SAMPLES,
         "\nspBs,pid  321 SpiFIOloop, wrote fffffff8, read 0000044c, errors 42 4d[12 22][11 21]"
         "[10 20]"},
        {'Y', 5, "<LI> 9 filesys opt wrote -8 read 1100 errors 55,0,0", NO_SAMPLES,
         "\n     pid  321 filesys, wrote fffffff8, read 0000044c, errors 0037       250 "},
        {'M', 5, "<LI> 9 bbsram file_copy wrote -8 read 1100 errors 55,0,0", NO_SAMPLES,
         "\n     pid  321 file copy,  read 0000044c, errors 0037         4 "},
        {'D', 5, "<LI> 9 dram user alloc 1100 test -8 errors 55,0,0", NO_SAMPLES,
         "\n     pid  321 dram   , alloc 0000044c, test fffffff8, errors 0037       250 "},
        {0, 5, "", "", ""},
        {'?', 5, "", "", ""}, // no record letter
    };
    for (const auto &c : cases) {
        EXPECT_EQ(results_line(distinct_record(c.letter, c.unit)),
                  std::string(c.listed) + c.samples)
            << c.letter;
        EXPECT_EQ(report_line(distinct_record(c.letter, c.unit)), c.reported) << c.letter;
    }
}

TEST_F(StatusReport, rates_wrap_in_32_bits_and_are_0_where_there_is_no_time_to_divide_by) {
    const auto expect_rate = [](char letter, const char *rate) {
        TestRecord record = distinct_record(letter);
        record.read_count = record.prev_read_count - 1;
        EXPECT_TRUE(report_line(record).ends_with(rate)) << report_line(record);
    };
    expect_rate('C', "errors 0037    12271335128 bps"); // 0xFFFFFFFF characters of 10 bits in 3.5 s
    report_start_time = {100, 900999};                  // the same millisecond
    expect_rate('C', "errors 0037         0 bps");
    expect_rate('Y', "errors 0037         0 ");
    report_start_time = {99, 0}; // the clock was set back
    expect_rate('C', "errors 0037         0 bps");
}

// What status_report writes to standard output.
std::string written_report() {
    testing::internal::CaptureStdout();
    status_report();
    return testing::internal::GetCapturedStdout();
}

TEST_F(StatusReport, shows_the_counted_processes_only_and_remembers_their_counters) {
    using enum record_letter;
    for (const record_letter letter : {PRODUCER, CROSSOVER, SPI_DEVICE, PRODUCER})
        claim_record(letter);
    process_count = 3; // one record has no process of its own
    for (int i = 1; i <= 4; ++i) {
        record(i).read_count = static_cast<uint32_t>(10 * i);
        record(i).write_count = static_cast<uint32_t>(i);
    }
    EXPECT_EQ(written_report(), "\nsp0, pid    0 produce, wrote 00000001, errors 0000"
                                "\n    pid    0 spi rom, wrote 00000003, read 0000001e, errors 0000"
                                "\n");
    EXPECT_GT(report_start_time.tv_sec, 1000) << "a time of day";
    EXPECT_GE(last_report_time.tv_sec, report_start_time.tv_sec);
    EXPECT_EQ(record(2).prev_read_count, 20u);
    EXPECT_EQ(record(2).prev_write_count, 2u);
    EXPECT_EQ(record(4).prev_read_count, 0u) << "not shown, not touched";
}

TEST_F(StatusReport, of_a_full_table_of_the_longest_lines_is_whole) {
    for (int i = 1; i <= TEST_RECORDS; ++i) {
        TestRecord &r = claim_record(record_letter::SPI_FIO);
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
