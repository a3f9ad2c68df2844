#include "storage/file_copy_test.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <sys/stat.h>

#include "storage/file_copy_turn.h"
#include "supervisor/unique_fd.h"
#include "tests/scratch_directory.h"

namespace {

class FileCopy : public ScratchDirectoryTest {
protected:
    static bool wait_for_reads(uint32_t count) {
        return wait_until([count] { return record(1).read_count >= count; }, 60);
    }
};

bool starts_with_the_block(const std::string &name) {
    const file_bytes bytes = read_whole(name);
    return bytes.size() >= 512 &&
           std::all_of(bytes.begin(), bytes.begin() + 256, [](uint8_t b) { return b == 0x55; });
}

TEST_F(FileCopy, only_an_argument_of_three_fields_in_800_characters_claims_a_record) {
    const std::string path(796, 'x');
    struct {
        std::string argument;
        int32_t claims;
    } const cases[] = {
        {"a:b:0", 1},   {"a:b:text", 1}, {"a::b:5", 1},      {":a:b:c", 1},
        {"a:b:5:d", 1}, {"a:b", 0},      {"a:b:", 0},        {"a", 0},
        {"", 0},        {"::", 0},       {path + ":b:0", 1}, {path + "x:b:0", 0},
    };
    for (const auto &c : cases) {
        const int32_t before = record_count;
        file_copy_option(1, c.argument.c_str());
        EXPECT_EQ(record_count - before, c.claims) << c.argument;
        EXPECT_EQ(is_file_copy_argument(c.argument.c_str()), c.claims == 1) << c.argument;
    }
    EXPECT_EQ(record(1).test_letter, 'M');
}

TEST_F(FileCopy, a_new_source_gets_the_block_before_the_first_turn_and_both_files_go_at_the_end) {
    start_held(file_copy_option, "source:copy:0");
    EXPECT_EQ(record(1).write_count, 1u);
    EXPECT_EQ(read_whole("source").size(), 512u);
    EXPECT_TRUE(starts_with_the_block("source"));
    EXPECT_EQ(read_whole("copy").size(), 0u);
    EXPECT_EQ(mode_of("source"), 0700u);
    EXPECT_EQ(mode_of("copy"), 0700u);

    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
    EXPECT_FALSE(exists("source"));
    EXPECT_FALSE(exists("copy"));
}

TEST_F(FileCopy, a_turn_grows_short_files_to_a_block_and_leaves_the_tail_of_long_ones) {
    const file_bytes text(700, 'z');
    write_whole("source", text);
    write_whole("copy", {1, 2, 3});
    start_held(file_copy_option, "source:copy:10");
    EXPECT_EQ(record(1).write_count, 0u);
    EXPECT_EQ(read_whole("source"), text);

    release();
    ASSERT_TRUE(wait_for_reads(4));
    ASSERT_TRUE(starts_with_the_block("source"));
    ASSERT_TRUE(starts_with_the_block("copy"));
    EXPECT_EQ(read_whole("copy").size(), 512u);
    const file_bytes source = read_whole("source");
    ASSERT_EQ(source.size(), text.size());
    EXPECT_TRUE(std::equal(source.begin() + 512, source.end(), text.begin() + 512));

    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).write_count, record(1).read_count);
    EXPECT_EQ(record(1).read_count % 2, 0u);
    EXPECT_EQ(record(1).errors, 0);
    EXPECT_FALSE(exists("source")) << "also a source that was there before";
}

TEST_F(FileCopy, pauses_5_ms_after_each_turn) {
    start_held(file_copy_option, "source:copy:1");
    release();
    ASSERT_TRUE(wait_for_reads(2));
    const uint32_t first = record(1).read_count / 2;
    const auto start_time = std::chrono::steady_clock::now();
    ASSERT_TRUE(wait_for_reads(2 * first + 40));
    const auto taken = std::chrono::steady_clock::now() - start_time;
    EXPECT_GE(taken, std::chrono::milliseconds(19 * 5)) << "20 turns";
}

TEST_F(FileCopy, a_source_that_cannot_be_made_is_one_error_and_brings_the_process_back) {
    start(file_copy_option, "missing/source:copy:1");
    EXPECT_EQ(wait_for_end(), CAME_BACK);
    EXPECT_EQ(record(1).errors, 1);
    EXPECT_EQ(record(1).pid, PID_STOP);
    EXPECT_EQ(record(1).write_count, 0u);
    EXPECT_FALSE(exists("copy"));
}

TEST_F(FileCopy, paths_are_cut_at_300_characters) {
    const std::string folder(200, 'd');
    const std::string name(99, 'n');
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const std::string kept = folder + "/" + name;
    start_held(file_copy_option, kept + "cut:" + kept.substr(0, 298) + "ccut:0");
    EXPECT_TRUE(exists(kept));
    EXPECT_TRUE(exists(kept.substr(0, 298) + "cc"));
    EXPECT_EQ(stop(), 2);
    EXPECT_FALSE(exists(kept));
}

TEST_F(FileCopy, only_an_empty_transfer_is_an_error) {
    const unique_fd file(open("file", O_RDWR | O_CREAT, 0600));
    const unique_fd null(open("/dev/null", O_RDWR)); // takes every write, gives nothing
    const copy_block block = make_copy_block();
    file_copy_turn(record(1), {file.get(), null.get()}, block);
    EXPECT_EQ(record(1).write_count, 2u);
    EXPECT_EQ(record(1).read_count, 1u);
    EXPECT_EQ(record(1).errors, 1);
    file_copy_turn(record(1), {-1, -1}, block);
    EXPECT_EQ(record(1).write_count, 4u);
    EXPECT_EQ(record(1).read_count, 3u);
    EXPECT_EQ(record(1).errors, 1);
}

} // namespace
