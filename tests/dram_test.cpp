#include "storage/dram_test.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "storage/dram_pass.h"
#include "tests/table_fixture.h"

namespace {

using Dram = TableTest;

constexpr uint32_t BLOCK = DRAM_BLOCK_BYTES;
constexpr uint32_t BAD_BLOCK = 3; // the one that spoil_block() spoils, counted from 1

// The fills of the tests take no argument of their own: what they see and do stands here.
std::vector<uint8_t *> filled;
std::vector<uint32_t> spoiled_offsets;

void remember_block(uint8_t *block) {
    filled.push_back(block);
    fill_dram_block(block);
}

void spoil_block(uint8_t *block) {
    remember_block(block);
    if (filled.size() == BAD_BLOCK)
        for (const uint32_t offset : spoiled_offsets)
            block[offset] ^= 0x10;
}

// A pipe takes bytes from an address only if there is memory.
bool is_mapped(const uint8_t *block) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const ssize_t count = write(ends[1], block, 1);
    (void)close(ends[0]);
    (void)close(ends[1]);
    return count == 1;
}

TEST(DramLimit, is_three_quarters_of_the_memory_size_in_32_bits) {
    struct {
        uint64_t pages;
        uint64_t page_bytes;
        uint32_t limit;
    } const cases[] = {
        {65536, 4096, 201326592},          // 256 MiB
        {4097, 65536, 201375744},          // large pages
        {1, 7, 6},                         // the quarter is rounded down
        {1048575, 4096, 3221222400},       // the last below 4 GiB
        {1048576, 4096, 0},                // 4 GiB wrap to nothing
        {1048576 + 65536, 4096, 201326592} // and 256 MiB more to 256 MiB
    };
    for (const auto &c : cases)
        EXPECT_EQ(dram_pass_limit(c.pages, c.page_bytes), c.limit) << c.pages;
}

TEST_F(Dram, a_pass_ends_with_the_block_that_reaches_the_limit_and_gives_all_back) {
    struct {
        uint32_t limit;
        uint32_t blocks;
    } const cases[] = {{0, 1},         {1, 1},           {BLOCK, 1},
                       {BLOCK + 1, 2}, {10 * BLOCK, 10}, {10 * BLOCK + 1, 11}};
    for (const auto &c : cases) {
        record(1) = {};
        filled.clear();
        dram_pass(record(1), c.limit, remember_block);
        EXPECT_EQ(record(1).read_count, c.blocks) << "limit " << c.limit;
        EXPECT_EQ(record(1).write_count, c.blocks) << "limit " << c.limit;
        EXPECT_EQ(record(1).errors, 0);
        ASSERT_EQ(filled.size(), c.blocks);
        for (const uint8_t *block : filled)
            EXPECT_FALSE(is_mapped(block));
    }
}

TEST_F(Dram, a_bad_block_is_one_error_and_the_last_of_its_pass) {
    const std::vector<uint32_t> cases[] = {{0},     {1},         {511},           {512},
                                           {32768}, {BLOCK - 1}, {0, 600, 65000}, {300, 301}};
    for (const std::vector<uint32_t> &offsets : cases) {
        record(1) = {};
        filled.clear();
        spoiled_offsets = offsets;
        dram_pass(record(1), 8 * BLOCK, spoil_block);
        EXPECT_EQ(record(1).errors, 1) << "offset " << offsets[0];
        EXPECT_EQ(record(1).read_count, BAD_BLOCK);
        EXPECT_EQ(record(1).write_count, BAD_BLOCK);
        for (const uint8_t *block : filled)
            EXPECT_FALSE(is_mapped(block));
    }
}

TEST_F(Dram, the_check_finds_the_first_bad_byte) {
    uint8_t *block = map_dram_block(nullptr);
    ASSERT_NE(block, nullptr);
    for (const uint32_t offset : {65535u, 65024u, 40000u, 513u, 512u, 511u, 3u, 0u}) {
        fill_dram_block(block);
        EXPECT_EQ(first_bad_dram_byte(block), BLOCK);
        block[BLOCK - 1] = 0;
        block[offset] ^= 0x01;
        EXPECT_EQ(first_bad_dram_byte(block), offset);
    }
    (void)munmap(block, BLOCK);
}

TEST_F(Dram, tested_blocks_are_wiped_and_listed_in_order) {
    filled.clear();
    spoiled_offsets = {100}; // the bad block too
    const dram_link first = test_dram_blocks(record(1), 8 * BLOCK, spoil_block);
    std::vector<uint8_t *> listed;
    for (dram_link link = first; link.block != nullptr; link = get_dram_link(link.block)) {
        EXPECT_EQ(link.bytes, BLOCK);
        listed.push_back(link.block);
        for (uint32_t i = sizeof(dram_link); i < BLOCK; ++i)
            ASSERT_EQ(link.block[i], 0) << "offset " << i;
    }
    EXPECT_EQ(listed, filled);
    release_dram_blocks(first);
}

int64_t mapped_pages() {
    std::array<char, 100> text = {};
    const int file = open("/proc/self/statm", O_RDONLY);
    (void)!read(file, text.data(), text.size() - 1);
    (void)close(file);
    return atoll(text.data());
}

// Runs one pass in a process that may map only so many blocks more. Its status is 0 when it gave
// back all it had mapped, 3 where no limit on the address space works (under emulation).
int pass_with_room_for(uint32_t blocks, TestRecord &record) {
    const pid_t child = fork();
    if (child == 0) {
        const int64_t before = mapped_pages();
        const auto bytes = static_cast<rlim_t>(before * getpagesize()) + blocks * BLOCK;
        const rlimit room = {bytes, bytes};
        (void)setrlimit(RLIMIT_AS, &room);
        if (mmap(nullptr, (blocks + 1) * BLOCK, PROT_READ, MAP_SHARED | MAP_ANONYMOUS, -1, 0) !=
            MAP_FAILED)
            _exit(3);
        dram_pass(record, 100 * BLOCK);
        _exit(mapped_pages() == before ? 0 : 1);
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Dram, a_failed_map_is_one_error_and_ends_the_pass) {
    for (const uint32_t blocks : {0u, 1u, 5u}) {
        record(1) = {};
        const int status = pass_with_room_for(blocks, record(1));
        if (status == 3)
            GTEST_SKIP() << "no limit on the address space here";
        EXPECT_EQ(status, 0) << blocks << " blocks";
        EXPECT_EQ(record(1).errors, 1);
        EXPECT_EQ(record(1).read_count, blocks);
        EXPECT_EQ(record(1).write_count, blocks);
    }
}

TEST_F(Dram, a_held_test_maps_nothing_until_it_is_stopped) {
    record(1).hold = HOLD_REQUESTED;
    const pid_t child = dram_test(0);
    ASSERT_GT(child, 0);
    EXPECT_EQ(record(1).test_letter, 'D');
    ASSERT_TRUE(wait_until([] { return shared_word(record(1).hold) == HOLD_ACKNOWLEDGED; }));
    EXPECT_EQ(record(1).pid, child);

    set_shared_word(record(1).pid, PID_STOP);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
    EXPECT_EQ(record(1).read_count, 0u);
    EXPECT_EQ(record(1).write_count, 0u);
}

} // namespace
