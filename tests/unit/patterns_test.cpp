#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <vector>

#include "runtime/settings.h"
#include "serial/patterns.h"

namespace {

using Block = std::array<uint8_t, 512>;

// Generates one frame with the generator in a known state.
int32_t generate(uint32_t seed, Block &expected, int32_t length) {
    rand_seed(seed);
    expected.fill(0xEE);
    return frame_sample_pattern(nullptr, expected.data(), length);
}

// A state whose next random value makes the frame begin at `start`.
uint32_t seed_for_start(int32_t start) {
    for (uint32_t seed = 0;; ++seed) {
        rand_seed(seed);
        if (rand_next() * 240 / 32767 == start)
            return seed;
    }
}

TEST(ParenPattern, sends_sixteen_and_names_the_first_bad_byte_within_512) {
    Block block = {};
    EXPECT_EQ(paren_pattern(nullptr, block.data(), 0), 16);
    EXPECT_EQ(std::count(block.begin(), block.end(), 0x29), 16);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 16), 0);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 17), 17);
    block.fill(0x29);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 100000), 0);
    block[4] = 0x2A;
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 16), 5);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 4), 0);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, -1), 0);
}

// A run ends at the next zero of the table or below `length`, which is an index into the table; so
// is the place of its closing zero. The stand-in is sent for a run of less than three bytes.
TEST(FrameSamples, are_runs_of_the_table_or_their_stand_in) {
    using bytes = std::vector<uint8_t>;
    const bytes stand_in = {')', '(', '\'', 0};
    struct {
        int32_t start;
        int32_t length;
        int32_t count;
        bytes begin;
        size_t zero_at;
    } const cases[] = {
        {0, 512, 3, stand_in, 3}, // entry 1 begins 09 00
        {22, 512, 7, {0x02, 0x02, 0x0c, 0x20, 0x12, 0xc7, 0x58, 0xEE}, 29},
        {90, 100, 9, {0x0c, 0x20, 0x12, 0xde}, 99},
        {90, 95, 5, {0x0c, 0x20, 0x12, 0xde, 0x13, 0xEE}, 95},
        {101, 100, 3, stand_in, 101},
        {240, 512, 3, stand_in, 240}, // the highest random value
    };
    for (const auto &c : cases) {
        Block frame;
        EXPECT_EQ(generate(seed_for_start(c.start), frame, c.length), c.count) << c.start;
        EXPECT_TRUE(std::equal(c.begin.begin(), c.begin.end(), frame.begin())) << c.start;
        EXPECT_EQ(frame[c.zero_at], 0) << c.start;
    }
}

TEST(FrameSamples, begin_with_the_sync_header_in_hdlc_mode) {
    hdlc_mode = 1;
    Block frame;
    EXPECT_EQ(generate(seed_for_start(22), frame, 512), 7);
    hdlc_mode = 0;
    const std::vector<uint8_t> begin = {0x17, 0x00, 0x03, 0x20};
    EXPECT_TRUE(std::equal(begin.begin(), begin.end(), frame.begin()));
}

TEST(FrameSamples, verify_names_the_first_difference_and_calls_nothing_bad) {
    Block sent;
    const int32_t count = generate(seed_for_start(22), sent, 100);
    Block received = sent;
    EXPECT_EQ(frame_sample_pattern(received.data(), sent.data(), count), 0);
    EXPECT_EQ(frame_sample_pattern(received.data(), sent.data(), 0), 1);
    received[4] ^= 0x80;
    EXPECT_EQ(frame_sample_pattern(received.data(), sent.data(), count), 5);
    EXPECT_EQ(frame_sample_pattern(received.data(), sent.data(), 4), 0);
}

TEST(FrameSamples, verify_looks_at_512_bytes_at_most) {
    std::array<uint8_t, 513> sent = {};
    std::array<uint8_t, 513> received = {};
    received[512] = 1;
    EXPECT_EQ(frame_sample_pattern(received.data(), sent.data(), 513), 0);
}

TEST(FrameSamples, the_table_is_the_one_of_the_wiring_sheet) {
    // Every byte that is ever sent, from runs at every start; the sum and a position-weighted sum
    // were taken from the sheet.
    uint32_t sum = 0;
    uint32_t weighted = 0;
    for (int32_t start = 0; start < 240; ++start) {
        Block frame;
        const int32_t count = generate(seed_for_start(start), frame, 512);
        if (frame[0] == ')' && frame[1] == '(')
            continue;
        for (int32_t i = 0; i < count; ++i) {
            sum += frame[static_cast<size_t>(i)];
            weighted += static_cast<uint32_t>(start + i) * frame[static_cast<size_t>(i)];
        }
    }
    EXPECT_EQ(sum, 51010u);
    EXPECT_EQ(weighted, 6383116u);
}

} // namespace
