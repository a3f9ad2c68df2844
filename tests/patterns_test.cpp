#include <algorithm>
#include <array>
#include <gtest/gtest.h>

#include "serial/patterns.h"
#include "supervisor/settings.h"

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

TEST(RandomNumbers, begin_in_a_fresh_process_as_they_always_did) {
    rand_seed(1);
    const int32_t expected[] = {16838, 5758, 10113, 17515, 31051};
    for (const int32_t value : expected)
        EXPECT_EQ(rand_next(), value);
}

TEST(ParenPattern, sends_sixteen_and_names_the_first_bad_byte) {
    Block block = {};
    EXPECT_EQ(paren_pattern(nullptr, block.data(), 0), 16);
    EXPECT_EQ(std::count(block.begin(), block.end(), 0x29), 16);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 16), 0);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 17), 17);
    block[4] = 0x2A;
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 16), 5);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 4), 0);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 0), 0);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, -1), 0);
}

TEST(ParenPattern, never_looks_behind_512_bytes) {
    Block block;
    block.fill(0x29);
    EXPECT_EQ(paren_pattern(block.data(), nullptr, 100000), 0);
}

TEST(FrameSamples, a_whole_first_entry_stops_at_the_zero_in_its_head) {
    // Entry 1 begins 09 00: one byte, too short, so the stand-in is sent.
    Block frame;
    ASSERT_EQ(generate(seed_for_start(0), frame, 512), 3);
    EXPECT_EQ(frame[0], ')');
    EXPECT_EQ(frame[1], '(');
    EXPECT_EQ(frame[2], '\'');
    EXPECT_EQ(frame[3], 0);
}

TEST(FrameSamples, a_run_ends_at_the_next_zero_and_its_closing_zero_stands_at_the_table_index) {
    Block frame;
    ASSERT_EQ(generate(seed_for_start(22), frame, 512), 7); // 02 02 0c 20 12 c7 58 | 00
    const uint8_t run[] = {0x02, 0x02, 0x0c, 0x20, 0x12, 0xc7, 0x58};
    EXPECT_TRUE(std::equal(std::begin(run), std::end(run), frame.begin()));
    EXPECT_EQ(frame[7], 0xEE) << "nothing is written right behind the copy";
    EXPECT_EQ(frame[29], 0) << "the zero stands where the table's run ended";
}

TEST(FrameSamples, a_length_below_the_table_cuts_by_table_index_not_by_count) {
    Block frame;
    EXPECT_EQ(generate(seed_for_start(90), frame, 100), 9); // index 90..98, a zero at 99
    EXPECT_EQ(generate(seed_for_start(90), frame, 95), 5);
    EXPECT_EQ(generate(seed_for_start(101), frame, 100), 3) << "nothing below 100: the stand-in";
    EXPECT_EQ(frame[0], ')');
}

TEST(FrameSamples, the_highest_random_value_copies_nothing) {
    Block frame;
    ASSERT_EQ(generate(seed_for_start(240), frame, 512), 3);
    EXPECT_EQ(frame[0], ')');
    EXPECT_EQ(frame[240], 0);
}

TEST(FrameSamples, hdlc_mode_puts_the_sync_header_over_the_first_three_bytes) {
    Block plain;
    Block framed;
    const uint32_t seed = seed_for_start(22);
    const int32_t count = generate(seed, plain, 512);
    hdlc_mode = 1;
    EXPECT_EQ(generate(seed, framed, 512), count);
    hdlc_mode = 0;
    EXPECT_EQ(framed[0], 0x17);
    EXPECT_EQ(framed[1], 0x00);
    EXPECT_EQ(framed[2], 0x03);
    EXPECT_TRUE(std::equal(plain.begin() + 3, plain.end(), framed.begin() + 3));
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
