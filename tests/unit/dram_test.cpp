#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

#include "storage/dram_pass.h"
#include "storage/start.h"
#include "tests/support/scratch_directory.h"

namespace {

using Dram = ScratchDirectoryTest;

constexpr uint32_t BLOCK = DRAM_BLOCK_BYTES;
constexpr uint32_t BAD_BLOCK = 3; // the one that is spoiled, counted from 1

// The fill routine takes no argument of its own: what it sees and does is kept here.
std::vector<uint8_t *> filled;
std::vector<uint32_t> spoiled_offsets;

void fill_and_spoil(uint8_t *block) {
    filled.push_back(block);
    fill_dram_block(block);
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
        {4097, 65536, 201375744},          // large pages
        {1, 7, 6},                         // the quarter is rounded down
        {1048575, 4096, 3221222400},       // the last below 4 GiB
        {1048576 + 65536, 4096, 201326592} // 4 GiB wrap to nothing
    };
    for (const auto &c : cases)
        EXPECT_EQ(dram_pass_limit(c.pages, c.page_bytes), c.limit) << c.pages;
}

TEST_F(Dram, a_pass_ends_with_a_bad_block_or_the_one_that_reaches_the_limit_and_gives_all_back) {
    struct {
        uint32_t limit;
        std::vector<uint32_t> spoiled;
        uint32_t blocks;
        int32_t errors;
    } const cases[] = {
        {0, {}, 1, 0},
        {BLOCK, {}, 1, 0},
        {BLOCK + 1, {}, 2, 0},
        {10 * BLOCK, {}, 10, 0},
        {8 * BLOCK, {0}, BAD_BLOCK, 1},
        {8 * BLOCK, {BLOCK - 1}, BAD_BLOCK, 1},
        {8 * BLOCK, {511}, BAD_BLOCK, 1},
        {8 * BLOCK, {512}, BAD_BLOCK, 1},
        {8 * BLOCK, {65024}, BAD_BLOCK, 1},
        {8 * BLOCK, {300, 301, 65000}, BAD_BLOCK, 1},
    };
    for (const auto &c : cases) {
        record(1) = {};
        filled.clear();
        spoiled_offsets = c.spoiled;
        dram_pass(record(1), c.limit, fill_and_spoil);
        EXPECT_EQ(record(1).read_count, c.blocks) << "limit " << c.limit;
        EXPECT_EQ(record(1).write_count, c.blocks) << "limit " << c.limit;
        EXPECT_EQ(record(1).errors, c.errors) << "limit " << c.limit;
        ASSERT_EQ(filled.size(), c.blocks);
        for (const uint8_t *block : filled)
            EXPECT_FALSE(is_mapped(block));
    }
}

TEST(DramBlock, is_good_whatever_follows_it) {
    std::vector<uint8_t> blocks(size_t{2} * BLOCK, DRAM_FILL);
    EXPECT_EQ(first_bad_dram_byte(blocks.data()), BLOCK);
}

TEST_F(Dram, tested_blocks_are_wiped_and_listed_in_order) {
    filled.clear();
    spoiled_offsets = {100}; // the bad block too
    const dram_link first = test_dram_blocks(record(1), 8 * BLOCK, fill_and_spoil);
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

TEST_F(Dram, a_held_test_makes_no_pass_before_it_stops) {
    start_held([](int no_fork, const char *) { (void)dram_test(no_fork); }, "");
    EXPECT_EQ(stop(), 2);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
    EXPECT_EQ(record(1).read_count, 0u);
}

} // namespace
