// What is read: every line that the program can write, in every form that a log gives it.

#include <array>
#include <bit>
#include <gtest/gtest.h>
#include <random>

#include "supervisor/lists/line_format.h"
#include "supervisor/lists/report_rows.h"
#include "supervisor/lists/results_rows.h"
#include "tests/fuzz/targets.h"
#include "tests/support/log_text.h"

namespace {

constexpr size_t LINE_ROOM = std::max(longest_line(RESULTS_ROWS), longest_line(REPORT_ROWS));

using record_words = std::array<uint32_t, sizeof(TestRecord) / sizeof(uint32_t)>;

// Small numbers, zeros and numbers of every length.
TestRecord random_record(std::mt19937 &random) {
    record_words words = {};
    for (uint32_t &word : words)
        word = static_cast<uint32_t>(random()) >> random() % 32 >> (random() % 3 == 0 ? 31 : 0);
    auto record = std::bit_cast<TestRecord>(words);
    record.hist_next = 0;
    return record;
}

void fit_unit(TestRecord &record, record_letter letter) {
    if (letter == record_letter::SPI_DEVICE)
        record.unit = 1 + (record.unit & 1);
    if (letter == record_letter::SPI_FIO)
        record.unit = 'B';
}

// Expects the words that the row prints, and no others.
void expect_words(const line_row &row, const TestRecord &written, const TestRecord &seen) {
    const auto before = std::bit_cast<record_words>(written);
    const auto after = std::bit_cast<record_words>(seen);
    EXPECT_EQ(seen.test_letter, static_cast<int32_t>(row.letter));
    for (size_t i = 0; i < row.field_count; ++i)
        EXPECT_TRUE(row.fields[i].form > field_form::REPORT_NAME ||
                    after[row.fields[i].word] == before[row.fields[i].word])
            << row.fields[i].name;
    for (int32_t k = 0; k < row.samples; ++k) {
        const auto sample = static_cast<size_t>(k);
        EXPECT_EQ(samples_newest_first(seen)[sample].position,
                  samples_newest_first(written)[sample].position);
        EXPECT_EQ(samples_newest_first(seen)[sample].value,
                  samples_newest_first(written)[sample].value);
    }
}

template <typename Read>
void expect_lines_read_back(std::span<const line_row> table, Read read) {
    std::mt19937 random(1);
    for (const line_row &row : table)
        for (int i = 0; i < 500 && row.format[0] != '\0'; ++i) {
            TestRecord written = random_record(random);
            written.test_letter = static_cast<int32_t>(row.letter);
            fit_unit(written, row.letter);
            char line[LINE_ROOM];
            std::string_view text(line, static_cast<size_t>(format_line(table, written, line)));
            text.remove_prefix(text.starts_with('\n') ? 1 : 0);
            TestRecord seen;
            ASSERT_TRUE(read(text, seen)) << text;
            SCOPED_TRACE(text);
            expect_words(row, written, seen);
        }
}

TEST(Reading, every_line_that_the_program_writes_is_read_back) {
    expect_lines_read_back(RESULTS_ROWS, [](std::string_view line, TestRecord &record) {
        return read_results_line(line, record);
    });
    expect_lines_read_back(REPORT_ROWS, [](std::string_view line, TestRecord &record) {
        int64_t bit_rate = 0;
        return read_report_line(line, record, bit_rate);
    });
}

// A number that the row does not have is 0 in the line.
void expect_quick_way_reads_no_other_line(const TestRecord &before, const std::string &text) {
    for (size_t at = 0; at < text.size(); ++at) {
        std::string changed = text;
        changed[at] = text[at] == '7' ? '1' : '7';
        TestRecord quick;
        TestRecord whole;
        if (read_next_line(changed, line_start(before), layout_of(before.test_letter), before,
                           quick)) {
            const bool is_line = read_results_line(changed, whole);
            EXPECT_TRUE(is_line && memcmp(&quick, &whole, sizeof quick) == 0) << changed;
        }
    }
}

// The second line of a record, clean or with errors and samples, after any first one.
TEST(Reading, the_quick_way_gives_the_same_as_the_whole_one) {
    std::mt19937 random(2);
    const auto line_of = [](const line_row &row, TestRecord record) {
        record.test_letter = static_cast<int32_t>(row.letter);
        record.unit = 3;
        record.kind_code = 5;
        fit_unit(record, row.letter);
        char line[longest_line(RESULTS_ROWS)];
        const int length = format_line(RESULTS_ROWS, record, line);
        return std::string(line, static_cast<size_t>(length) - 1);
    };
    for (const line_row &row : RESULTS_ROWS)
        for (int i = 0; i < 200 && row.format[0] != '\0'; ++i) {
            TestRecord now = {};
            now.read_count = static_cast<uint32_t>(random());
            now.write_count = static_cast<uint32_t>(random()) >> 20;
            const std::string text = line_of(row, i % 2 == 0 ? now : random_record(random));
            TestRecord before;
            TestRecord quick;
            TestRecord whole;
            ASSERT_TRUE(read_results_line(line_of(row, random_record(random)), before));
            ASSERT_TRUE(read_results_line(text, whole)) << text;
            ASSERT_TRUE(read_next_line(text, line_start(before), layout_of(before.test_letter),
                                       before, quick))
                << text;
            EXPECT_EQ(memcmp(&quick, &whole, sizeof quick), 0) << text;
            EXPECT_FALSE(read_next_line(text + ",0", line_start(before),
                                        layout_of(before.test_letter), before, quick));
            if (i % 20 < 2)
                expect_quick_way_reads_no_other_line(before, text);
        }
}

TEST(Reading, no_other_text_is_a_line_of_the_list) {
    TestRecord record;
    for (const char *text :
         {"<LI> 5 sp8 loop wrote 1 read 1 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0",
          "<LI> 5 sp8 loop wrote 1 read 1 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0 0",
          "<LI> 5 sp8 loop wrote 2147483648 read 1 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0",
          "<LI> 5 sp8 loop wrote - read 1 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0",
          "<LI> 3 sp2 produce wrote 5 verify 6 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0", "<LI> ", ""})
        EXPECT_FALSE(read_results_line(text, record)) << text;
    EXPECT_TRUE(read_results_line("<LI> 9 SpiFIOloop sp", record));
    EXPECT_EQ(record.unit, 0); // its device could not be opened
}

struct form_case {
    const char *line; // up to the message
    const char *host;
    const char *ident;
    int64_t time_ms;
};

constexpr int64_t TIME_MS = int64_t{1795311051} * 1000; // 2026-11-22 01:30:51 UTC

const form_case FORMS[] = {
    {"Nov 22 01:30:51 rack7 Stress 020000001234 : ", "rack7", "Stress 020000001234", TIME_MS},
    {"Nov 22 01:30:51 rack7 user.info Stress 020000001234 : ", "rack7", "Stress 020000001234",
     TIME_MS},
    {"Nov 22 01:30:51 rack7 hk_stress[812]: Stress 020000001234 : ", "rack7", "Stress 020000001234",
     TIME_MS},
    {"Nov 22 01:30:51 rack7 oven[812]: ", "rack7", "oven", TIME_MS},
    {"2026-11-22T01:30:51+00:00 rack7 Stress 020000001234 : ", "rack7", "Stress 020000001234",
     TIME_MS},
    {"2026-11-22T03:30:51.250000+02:00 rack7 oven 3: ", "rack7", "oven 3", TIME_MS + 250},
    {"2026-11-21T20:30:51-0500 rack7 oven: ", "rack7", "oven", TIME_MS},
    {"<14>1 2026-11-22T01:30:51Z rack7 Stress - - -  020000001234 : ", "rack7",
     "Stress 020000001234", TIME_MS},
    {"<14>1 2026-11-22T01:30:51Z rack7 oven 812 - [a@1 b=\"]x\"] ", "rack7", "oven", TIME_MS},
    {"<14>1 2026-11-22T01:30:51Z rack7 oven - - [a@1 b=\"\\\"] <OL>\"][c d=\"]\"] 3: ", "rack7",
     "oven 3", TIME_MS},
    {"<14>1 2026-11-22T01:30:51Z - Stress - - - \xef\xbb\xbf 020000001234 : ", "",
     "Stress 020000001234", TIME_MS},
    {"<14>Nov 22 01:30:51 Stress 020000001234 : ", "", "Stress 020000001234", TIME_MS},
    {"2026-11-22 01:30:51.310 Stress 020000001234 : ", "", "Stress 020000001234", TIME_MS + 310},
    {"2026-11-22 01:30:51.310 a: <LI> b: ", "", "a: <LI> b", TIME_MS + 310},
};

TEST(Reading, every_form_of_a_log_gives_time_host_ident_and_message) {
    for (const form_case &form : FORMS)
        for (const auto &[message, kind] : {std::pair{"<OL>", message_kind::LIST_BEGIN},
                                            {"<LI> 5 sp8 loop", message_kind::ITEM},
                                            {"</OL><P>", message_kind::LIST_END},
                                            {"Couldn't open SP8", message_kind::COMPLAINT}}) {
            SCOPED_TRACE(form.line);
            line_parser parser(2026);
            const std::string text = std::string(form.line) + message;
            EXPECT_EQ(time_of_line(text, 2026), form.time_ms);
            std::array buffers = {text, text};
            for (std::string &bytes : buffers) {
                const parsed_line line = parser.parse(bytes);
                EXPECT_EQ(line.time_ms, form.time_ms);
                EXPECT_EQ(line.host, form.host);
                EXPECT_EQ(line.ident, form.ident);
                EXPECT_EQ(line.pid, text.find("812") != std::string::npos ? 812 : 0);
                EXPECT_EQ(line.text, message);
                EXPECT_EQ(line.kind, kind);
                bytes.assign(bytes.size(), '?'); // the next read of a file does so
            }
        }
}

TEST(Reading, a_traditional_time_goes_on_into_the_next_year) {
    line_parser parser(2026);
    const int64_t before = parser.parse("Dec 31 23:59:59 r o: <OL>").time_ms;
    EXPECT_EQ(parser.parse("Jan  1 00:00:00 r o: <OL>").time_ms - before, 1000);
    EXPECT_EQ(parser.parse("Dec 31 23:59:59 r o: <OL>").time_ms, before); // it came late
}

TEST(Reading, the_journals_export_gives_the_same_verdict) {
    std::string text;
    int second = 10;
    const auto binary = [](const std::string &name, const std::string &value) {
        std::string length(8, '\0');
        for (size_t i = 0; i < length.size(); ++i)
            length[i] = static_cast<char>(value.size() >> 8 * i);
        return name + "\n" + length + value + "\n";
    };
    const std::string long_field = binary("COREDUMP", std::string(100'000, '\n'));
    const auto entry = [&](const std::string &message) {
        text += "__CURSOR=s=1\n__REALTIME_TIMESTAMP=" +
                std::to_string((TIME_MS + second * 1000) * 1000) + "\n_HOSTNAME=rack7\n_PID=812\n" +
                long_field + binary("MESSAGE", message) + "SYSLOG_FACILITY=1\n\n";
    };
    for (; second <= 30; second += 10) {
        entry("Stress 020000001234 : <OL>");
        entry("Stress 020000001234 : " + producer(second) + "\n");
        text += "__CURSOR=s=2\n_HOSTNAME=rack7\n\n"; // an entry without a message
        entry("Stress 020000001234 : </OL><P>");
    }
    text.pop_back(); // the blank line after the last entry
    const outcome seen = judge_text(text);
    EXPECT_EQ(seen.status, EVERYTHING_PASSES);
    EXPECT_TRUE(seen.says("Stress 020000001234 on rack7")) << seen.report;
    EXPECT_TRUE(seen.says("2026-11-22 01:31:01 to 2026-11-22 01:31:21 (20 s), 3 lists") &&
                seen.says("PASS: 1 of 1"))
        << seen.report;
    log_history history;
    read_text(history, text);
    EXPECT_EQ(history.boards.at(0).runs.at(0).pid, 812);
}

// The target aborts when something does not hold.
TEST(Reading, the_logs_of_the_fuzzer_are_judged_without_a_fault) {
    EXPECT_GT(replay("log_text", fuzz_log_text), 0);
}

} // namespace
