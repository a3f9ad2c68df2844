// How the inputs of field I/O modules are compared with what a step of the map asks for.
#include <array>
#include <gtest/gtest.h>

#include "fio/fio_module.h"
#include "fio/spi_inputs.h"

namespace {

constexpr int32_t STEP_INDEX = 7;
constexpr uint8_t INPUTS = 14;

struct input {
    size_t byte;
    uint8_t value;
};

fio_frame reply_with(std::initializer_list<input> inputs) {
    fio_frame reply = {};
    for (const input &each : inputs)
        reply[DATA_AT + each.byte] = each.value;
    return reply;
}

class Inputs : public testing::Test {
protected:
    // Runs the read attempts of a step, each with the same reply. Returns how many there were.
    int attempts(const loop_step &step, const fio_frame &reply, uint8_t inputs = INPUTS) {
        record = {};
        int count = 0;
        for (int32_t attempt = 0; attempt < 5; ++attempt, ++count)
            attempt = compare_inputs(record, reply, step, STEP_INDEX, inputs, attempt);
        return count;
    }

    TestRecord record = {};
};

TEST_F(Inputs, the_byte_that_a_step_names_must_hold_its_bit_and_no_other) {
    const loop_step step = {5, 2, 3, 4, 0, 0};
    EXPECT_EQ(attempts(step, reply_with({{3, 0x08}})), 1);
    EXPECT_EQ(record.errors2, 0);
    for (const uint8_t wrong : std::to_array<uint8_t>({0x00, 0x09, 0x10, 0xFF})) {
        EXPECT_EQ(attempts(step, reply_with({{3, wrong}})), 1);
        EXPECT_EQ(record.errors2, 1) << int{wrong};
        EXPECT_EQ(record.hist[0].position, STEP_INDEX);
        EXPECT_EQ(record.hist[0].value, wrong);
        EXPECT_EQ(record.hist_next, 1);
    }
}

TEST_F(Inputs, bytes_that_a_step_does_not_name_may_hold_anything) {
    fio_frame reply;
    reply.fill(0xFF);
    reply[DATA_AT + 3] = 0x08;
    EXPECT_EQ(attempts({5, 2, 3, 4, 0, 0}, reply), 1);
    EXPECT_EQ(record.errors2, 0);
}

TEST_F(Inputs, a_wrong_byte_0_does_not_count) {
    EXPECT_EQ(attempts({0, 1, 0, 1, 0, 0}, reply_with({{0, 0x03}})), 1);
    EXPECT_EQ(record.errors2, 0);
    EXPECT_EQ(record.hist_next, 0);
}

TEST_F(Inputs, a_second_input_must_hold_its_bit_and_no_other) {
    const loop_step step = {0, 2, 0, 2, 13, 2};
    (void)attempts(step, reply_with({{0, 0x02}, {13, 0x02}}));
    EXPECT_EQ(record.errors2, 0);
    for (const uint8_t wrong : std::to_array<uint8_t>({0x00, 0x03, 0x01})) {
        (void)attempts(step, reply_with({{0, 0x02}, {13, wrong}}));
        EXPECT_EQ(record.errors2, 1) << int{wrong};
        EXPECT_EQ(record.hist[0].value, wrong);
    }
    (void)attempts({1, 2, 1, 2, 14, 2}, reply_with({{1, 0x02}, {14, 0x00}}));
    EXPECT_EQ(record.errors2, 0) << "byte 14 is compared only where there are 15 input bytes";
    (void)attempts({1, 2, 1, 2, 14, 2}, reply_with({{1, 0x02}, {14, 0x00}}), 15);
    EXPECT_EQ(record.errors2, 1);
}

TEST_F(Inputs, they_are_read_five_times_only_when_no_byte_matches) {
    EXPECT_EQ(attempts({0, 1, 0, 1, 0, 0}, reply_with({{0, 0x80}}), 1), 5);
    EXPECT_EQ(record.errors2, 1);
    EXPECT_EQ(record.hist[0].value, 0x80);
}

TEST(SpiInputs, the_first_input_is_exact_and_the_second_only_not_0) {
    const loop_step step = {14, 6, 7, 5, 13, 3};
    EXPECT_TRUE(inputs_follow(reply_with({{7, 0x10}, {13, 0x04}}), step));
    EXPECT_TRUE(inputs_follow(reply_with({{7, 0x10}, {13, 0xFF}, {2, 0xFF}}), step));
    EXPECT_FALSE(inputs_follow(reply_with({{7, 0x10}}), step));
    EXPECT_FALSE(inputs_follow(reply_with({{7, 0x11}, {13, 0x04}}), step));
    EXPECT_FALSE(inputs_follow(reply_with({{13, 0x04}}), step));
    EXPECT_TRUE(inputs_follow(reply_with({{7, 0x10}}), {14, 6, 7, 5, 0, 0}));
    EXPECT_FALSE(inputs_follow(reply_with({{13, 0x20}}), {15, 6, 13, 5, 0, 0}));
}

TEST(SpiInputs, two_bits_of_219_are_inverted_and_a_third_with_them) {
    const struct {
        uint8_t byte_7, byte_11;
        uint8_t corrected_7, corrected_11;
    } cases[] = {
        {0x00, 0x02, 0xC0, 0x02},
        {0x40, 0x00, 0x80, 0x02},
        {0xC4, 0x22, 0x04, 0x20},
        {0x3F, 0xFF, 0xFF, 0xFF},
    };
    for (const auto &raw : cases) {
        fio_frame reply = reply_with({{7, raw.byte_7}, {11, raw.byte_11}});
        correct_inputs(reply, 219);
        EXPECT_EQ(reply, reply_with({{7, raw.corrected_7}, {11, raw.corrected_11}}));
    }
}

TEST(SpiInputs, five_bytes_of_221_are_not_wired_and_other_types_are_left_alone) {
    fio_frame reply;
    reply.fill(0xFF);
    const fio_frame before = reply;
    correct_inputs(reply, 220);
    EXPECT_EQ(reply, before);
    correct_inputs(reply, 221);
    for (size_t at = 0; at < reply.size(); ++at)
        EXPECT_EQ(reply[at], at >= 11 && at <= 15 ? 0 : 0xFF) << at;
}

} // namespace
