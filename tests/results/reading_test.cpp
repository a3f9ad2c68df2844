// What is read: every line that the program can write, in every form that a log gives it.

#include <array>
#include <bit>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <zlib.h>
#include <zstd.h>

#include "results/history/follow.h"
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
            std::array buffers = {text, text};
            for (std::string &bytes : buffers) {
                const parsed_line line = parser.parse(bytes);
                EXPECT_EQ(line.time_ms, form.time_ms);
                EXPECT_EQ(line.host, form.host);
                EXPECT_EQ(line.ident, form.ident);
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
}

TEST(Reading, the_journals_export_gives_the_same_verdict) {
    std::string text;
    int second = 10;
    const auto entry = [&](const std::string &message) {
        text += "__CURSOR=s=1\n__REALTIME_TIMESTAMP=" +
                std::to_string((TIME_MS + second * 1000) * 1000) + "\n_HOSTNAME=rack7\n_PID=812\n";
        std::string length(8, '\0');
        length[0] = static_cast<char>(message.size());
        text += "MESSAGE\n" + length + message + "\nSYSLOG_FACILITY=1\n\n";
    };
    for (; second <= 30; second += 10) {
        entry("Stress 020000001234 : <OL>");
        entry("Stress 020000001234 : " + producer(second) + "\n");
        text += "__CURSOR=s=2\n_HOSTNAME=rack7\n\n"; // an entry without a message
        entry("Stress 020000001234 : </OL><P>");
    }
    const outcome seen = judge_text(text);
    EXPECT_EQ(seen.status, EVERYTHING_PASSES);
    EXPECT_TRUE(seen.says("Stress 020000001234 on rack7")) << seen.report;
    EXPECT_TRUE(seen.says("3 lists") && seen.says("PASS: 1 of 1")) << seen.report;
}

class scratch_file {
public:
    explicit scratch_file(const std::string &bytes) {
        const int file = mkstemp(path.data());
        EXPECT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        (void)close(file);
    }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;
    ~scratch_file() {
        (void)unlink(path.c_str());
    }

    std::string path = testing::TempDir() + "hk_results_XXXXXX";
};

std::string gzipped(const std::string &text) {
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string packed(text.size() + 100, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    packed.resize(stream.total_out);
    (void)deflateEnd(&stream);
    return packed;
}

std::string zstd_packed(const std::string &text) {
    std::string packed(ZSTD_compressBound(text.size()), '\0');
    packed.resize(ZSTD_compress(packed.data(), packed.size(), text.data(), text.size(), 3));
    return packed;
}

// The run is split over three files, packed in three ways, and within a list. `cat` has put one
// together from two.
TEST(Reading, files_in_any_order_and_any_packing_are_one_log) {
    const std::string text = good_run();
    const size_t first = text.size() / 3;
    const size_t second = text.find('\n', 2 * first) + 1;
    const std::string line_end = text.substr(text.find('\n', first) + 1);
    const std::string begin = text.substr(0, text.size() - line_end.size());
    const scratch_file oldest(gzipped(begin.substr(0, 50)) + gzipped(begin.substr(50)));
    const scratch_file middle(
        zstd_packed(line_end.substr(0, line_end.size() - (text.size() - second))));
    const scratch_file newest(text.substr(second));
    log_history history;
    read_files({newest.path, oldest.path, middle.path}, history);
    history.finish();
    const totals all = judge_all(history, {});
    EXPECT_EQ(exit_code_of(all), EVERYTHING_PASSES) << sentence_of(all);
    EXPECT_EQ(all.runs, 1U);
    EXPECT_EQ(history.boards[0].runs[0].lists, 5U);
}

// Rotated within a list, then emptied.
TEST(Reading, a_followed_log_is_read_on_after_a_rotation) {
    const std::string first = list(10, {producer(5)}) + at(20, "<OL>");
    const std::string late = at(20, producer(9));
    const std::string second = at(20, "</OL><P>");
    const scratch_file log(first);
    log_history history;
    followed_log followed(log.path, history);
    const auto go_on = [](const board_history &) { return false; };
    EXPECT_TRUE(followed.read(go_on));
    const std::string old = log.path + ".1";
    ASSERT_EQ(rename(log.path.c_str(), old.c_str()), 0);
    EXPECT_TRUE(followed.read(go_on)); // it is not there
    std::ofstream(log.path) << "";
    EXPECT_TRUE(followed.read(go_on));
    std::ofstream(old, std::ios::app) << late; // the writer moves to the new file a little later
    std::ofstream(log.path) << second;
    EXPECT_TRUE(followed.read(go_on));
    std::ofstream(log.path) << "";
    EXPECT_TRUE(followed.read(go_on));
    std::ofstream(log.path) << list(30, {producer(12, "0,0,1")});
    EXPECT_FALSE(followed.read([](const board_history &) { return true; }));
    const totals all = judge_all(history, {});
    EXPECT_EQ(all.runs, 1U);
    EXPECT_EQ(history.boards[0].runs[0].lists, 3U);
    EXPECT_EQ(all.is, verdict::FAIL);
    (void)unlink(old.c_str());
}

// Both write in the same second, and each list of the first arrives in two parts.
TEST(Reading, two_logs_that_are_followed_at_once_keep_their_boards) {
    const std::string one = list(10, {producer(5), producer(6)}, "a oven");
    const size_t half = one.find('\n', one.find("<LI>")) + 1;
    const scratch_file first(one.substr(0, half));
    const scratch_file second(list(10, {producer(7)}, "b oven"));
    log_history history;
    followed_log logs[] = {{first.path, history}, {second.path, history}};
    const auto go_on = [](const board_history &) { return false; };
    for (followed_log &log : logs)
        EXPECT_TRUE(log.read(go_on));
    std::ofstream(first.path, std::ios::app) << one.substr(half);
    EXPECT_TRUE(logs[0].read(go_on));
    history.finish();
    ASSERT_EQ(history.boards.size(), 2U);
    EXPECT_EQ(history.boards[0].host, "a");
    EXPECT_EQ(history.boards[0].runs.at(0).records.size(), 2U);
    EXPECT_EQ(history.boards[1].host, "b");
    EXPECT_EQ(history.boards[1].runs.at(0).lists, 1U);
}

// The traditional time has no year. The list begins in one file and ends in the next.
TEST(Reading, the_last_change_of_a_file_gives_the_year_of_its_first_line) {
    const scratch_file first("Dec 31 23:59:59 rack7 oven: <OL>\n");
    const scratch_file second("Jan  1 00:00:00 rack7 oven: </OL><P>\n");
    constexpr time_t NEW_YEAR_2024 = 1704067200;
    const timespec times[] = {{NEW_YEAR_2024, 0}, {NEW_YEAR_2024, 0}};
    for (const scratch_file *file : {&first, &second})
        ASSERT_EQ(utimensat(AT_FDCWD, file->path.c_str(), times, 0), 0);
    log_history history;
    read_files({second.path, first.path}, history);
    history.finish();
    EXPECT_EQ(history.boards.at(0).runs.at(0).first_ms, int64_t{NEW_YEAR_2024 - 1} * 1000);
    EXPECT_EQ(history.boards[0].runs[0].lists, 1U);
}

// The target aborts when something does not hold.
TEST(Reading, the_logs_of_the_fuzzer_are_judged_without_a_fault) {
    EXPECT_GT(replay("log_text", fuzz_log_text), 0);
}

TEST(Reading, a_damaged_packed_file_is_reported) {
    const std::string packed = gzipped(good_run());
    const scratch_file cut(packed.substr(0, packed.size() / 2));
    log_history history;
    EXPECT_THROW(read_files({cut.path}, history), unreadable_input);
    EXPECT_THROW(read_files({"/nonexistent"}, history), unreadable_input);
    EXPECT_THROW(read_files({"/"}, history), unreadable_input);
}

} // namespace
