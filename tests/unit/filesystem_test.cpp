#include "storage/start.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "storage/numbered_files.h"
#include "tests/support/scratch_directory.h"

namespace {

using Filesystem = ScratchDirectoryTest;

file_bytes words(uint16_t value, size_t count = 256) {
    file_bytes bytes(2 * count);
    for (size_t i = 0; i < count; ++i)
        memcpy(&bytes[2 * i], &value, 2);
    return bytes;
}

file_bytes words_with_a_bad_one(uint16_t value, size_t position) {
    file_bytes bytes = words(value);
    bytes[2 * position] ^= 0x40;
    return bytes;
}

TEST_F(Filesystem, makes_its_directory_and_sixteen_files_and_removes_them_at_the_end) {
    const std::string made = std::filesystem::current_path() / "made";
    start_held(filesystem_test, made);
    EXPECT_EQ(record(1).test_letter, 'Y');
    EXPECT_EQ(mode_of(made), 0700u);
    uint16_t number = 0;
    for (const char digit : std::string("0123456789ABCDEF")) {
        const std::string name = made + "/file-000" + digit;
        EXPECT_EQ(read_whole(name), words(number++)) << name;
        EXPECT_EQ(mode_of(name), 0700u);
    }
    EXPECT_EQ(record(1).write_count, 16u);
    EXPECT_EQ(record(1).read_count, 0u);
    EXPECT_EQ(record(1).errors, 0);

    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
    EXPECT_FALSE(exists(made));
}

TEST_F(Filesystem, keeps_a_directory_that_is_there_and_its_files_of_the_right_size) {
    ASSERT_EQ(mkdir("kept", 0750), 0);
    write_whole("kept/file-0003", words(0x7777));
    write_whole("kept/file-0004", words(0x7777, 10));
    write_whole("kept/file-0005", words(0x7777, 300));
    write_whole("kept/file-0010", words(16));
    start_held(filesystem_test, "kept");
    EXPECT_EQ(record(1).write_count, 15u);
    EXPECT_EQ(read_whole("kept/file-0003"), words(0x7777));
    EXPECT_EQ(read_whole("kept/file-0004"), words(4));
    EXPECT_EQ(read_whole("kept/file-0005").size(), 600u) << "rewritten, but not cut off";

    set_shared_word(record(1).hold, HOLD_NONE);
    ASSERT_TRUE(wait_until([] { return shared_word(record(1).errors) >= 6; }));
    EXPECT_EQ(stop(), 2);
    // A pass counts file-0003 and file-0005 as errors, and reads all but file-0005.
    EXPECT_EQ(record(1).errors % 2, 0);
    EXPECT_EQ(record(1).read_count, static_cast<uint32_t>(record(1).errors) / 2 * 16);
    EXPECT_EQ(mode_of("kept"), 0750u);
    EXPECT_TRUE(exists("kept/file-0010"));
    EXPECT_FALSE(exists("kept/file-0000"));
    EXPECT_FALSE(exists("kept/file-000F"));
}

TEST_F(Filesystem, writes_nothing_where_its_path_is_no_directory) {
    write_whole("plain", words(1));
    const pid_t self = getpid();
    filesystem_test(0, "plain");
    if (getpid() != self)
        _exit(1); // the routine returns here if its set-up fails
    ASSERT_TRUE(wait_until([] { return shared_word(record(1).pid) == PID_STOP; }));
    EXPECT_EQ(record(1).errors, 1);
    EXPECT_FALSE(exists("file-0000"));
}

TEST_F(Filesystem, compares_each_file_with_the_number_in_its_name) {
    struct {
        const char *name;
        file_bytes bytes;
        uint32_t read_count;
        int32_t errors;
    } const cases[] = {
        {"file-0003", words(3), 1, 0},
        {"file-0003", words_with_a_bad_one(3, 0), 1, 1},
        {"file-0003", words_with_a_bad_one(3, 254), 1, 1},
        {"file-0003", words_with_a_bad_one(3, 255), 1, 0}, // the last word is not seen
        {"file-0003", words(3, 255), 0, 1},
        {"file-0003", words(3, 257), 0, 1},
        {"file-1aF", words(0x1AF), 1, 0},
        {"file-7FFF", words(0x7FFF), 1, 0},
        {"file-8000", words(0x8000), 1, 1}, // words are signed, numbers are not
        {"file-FFFF8000", words(0x8000), 1, 0},
        {"file-200000005", words(5), 1, 0}, // the low 32 bits
        {"file-", words(0), 1, 0},
        {"file-zoo", words(1), 1, 1},
        {"file", words(7), 0, 0},
        {"a file-0003", words(7), 0, 0},
    };
    for (const auto &c : cases) {
        record(1) = {};
        write_whole(c.name, c.bytes);
        verify_test_files(record(1));
        EXPECT_EQ(record(1).read_count, c.read_count) << c.name << ", " << c.bytes.size();
        EXPECT_EQ(record(1).errors, c.errors) << c.name << ", " << c.bytes.size();
        EXPECT_EQ(unlink(c.name), 0);
    }
}

} // namespace
