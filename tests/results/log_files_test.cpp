// Files of a log: packed, in any order, rotated, damaged.

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include "results/history/follow.h"
#include "tests/support/log_text.h"

namespace {

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
TEST(LogFiles, files_in_any_order_and_any_packing_are_one_log) {
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
TEST(LogFiles, a_followed_log_is_read_on_after_a_rotation) {
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

// Both write in the same second, and a line of the first arrives in two parts.
TEST(LogFiles, two_logs_that_are_followed_at_once_keep_their_boards) {
    const std::string one = list(10, {producer(5), producer(6)}, "a oven");
    const size_t half = one.find("produce");
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
TEST(LogFiles, the_last_change_of_a_file_gives_the_year_of_its_first_line) {
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

std::string fault_of(const std::string &path) {
    log_history history;
    try {
        read_files({path}, history);
    } catch (const unreadable_input &fault) {
        return fault.what();
    }
    return "";
}

TEST(LogFiles, that_cannot_be_read_to_their_end_are_named_with_the_reason) {
    const std::string gzip = gzipped(good_run());
    const std::string zstd = zstd_packed(good_run());
    const struct {
        std::string bytes;
        const char *reason;
    } cases[] = {
        {gzip.substr(0, gzip.size() / 2), ": the gzip data ends too early"},
        {gzip.substr(0, 10) + "no deflated data", ": damaged gzip data"},
        {gzip + gzip.substr(0, 20), ": the gzip data ends too early"},
        {zstd.substr(0, zstd.size() / 2), ": the zstd data ends too early"},
        {zstd.substr(0, 4) + std::string(100, '\xff'), ": damaged zstd data"},
        {zstd + zstd.substr(0, 20), ": the zstd data ends too early"},
    };
    for (const auto &each : cases) {
        const scratch_file file(each.bytes);
        EXPECT_EQ(fault_of(file.path), file.path + each.reason);
    }
    EXPECT_EQ(fault_of("/nonexistent"), "/nonexistent: No such file or directory");
    EXPECT_EQ(fault_of("/"), "/: is a directory");
}

} // namespace
