#include "storage/start.h"

#include <algorithm>
#include <sys/stat.h>

#include "tests/support/scratch_directory.h"

namespace {

using FileCopy = ScratchDirectoryTest;

// The block that is copied, and what follows it.
file_bytes block_and(size_t tail, uint8_t byte) {
    file_bytes bytes(512 + tail, byte);
    std::fill_n(bytes.begin(), 256, uint8_t{0x55});
    std::fill_n(bytes.begin() + 256, 256, uint8_t{0});
    return bytes;
}

TEST_F(FileCopy, only_an_argument_of_three_fields_in_800_characters_claims_a_record) {
    const std::string path(796, 'x');
    struct {
        std::string argument;
        int32_t claims;
    } const cases[] = {
        {"a:b:text", 1}, {"a::b:5", 1}, {"a:b:5:d", 1},     {"a:b:", 0},
        {"a", 0},        {"", 0},       {path + ":b:0", 1}, {path + "x:b:0", 0},
    };
    for (const auto &c : cases) {
        const int32_t before = record_count;
        file_copy_option(1, c.argument.c_str());
        EXPECT_EQ(record_count - before, c.claims) << c.argument;
        EXPECT_EQ(is_file_copy_argument(c.argument.c_str()), c.claims == 1) << c.argument;
    }
    EXPECT_EQ(record(1).test_letter, 'M');
}

TEST_F(FileCopy, makes_files_named_by_300_characters_of_their_paths_and_removes_them_at_the_end) {
    const std::string folder(200, 'd');
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const std::string source = folder + "/" + std::string(99, 's');
    const std::string copy = folder + "/" + std::string(99, 'c');
    start_held(file_copy_option, source + "cut:" + copy + "cut:0");
    EXPECT_EQ(record(1).write_count, 1u);
    EXPECT_EQ(read_whole(source), block_and(0, 0)) << "before the first turn";
    EXPECT_EQ(read_whole(copy), file_bytes{});
    EXPECT_EQ(mode_of(source), 0700u);
    EXPECT_EQ(mode_of(copy), 0700u);

    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(FileCopy, rewrites_a_block_of_each_file_and_leaves_what_follows_it) {
    const file_bytes text(700, 'z');
    write_whole("source", text);
    write_whole("copy", {1, 2, 3});
    start_held(file_copy_option, "source:copy:10");
    EXPECT_EQ(record(1).write_count, 0u);
    EXPECT_EQ(read_whole("source"), text);

    set_shared_word(record(1).hold, HOLD_NONE);
    ASSERT_TRUE(wait_until([] { return record(1).read_count >= 42; }));
    EXPECT_EQ(read_whole("source"), block_and(700 - 512, 'z'));
    EXPECT_EQ(read_whole("copy"), block_and(0, 0));

    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).write_count, record(1).read_count);
    EXPECT_EQ(record(1).read_count % 2, 0u);
    EXPECT_EQ(record(1).errors, 0);
    EXPECT_FALSE(exists("source")) << "also a source that was there before";
}

} // namespace
