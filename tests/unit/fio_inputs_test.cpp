// How the inputs of field I/O modules are compared with what a step of the map asks for.
#include <gtest/gtest.h>
#include <vector>

#include "fio/fio_module.h"
#include "fio/spi/spi_inputs.h"

namespace {

struct input {
    size_t byte;
    uint8_t value;
};
using input_bytes = std::vector<input>;

fio_frame reply_with(const input_bytes &inputs) {
    fio_frame reply = {};
    for (const input &each : inputs)
        reply[DATA_AT + each.byte] = each.value;
    return reply;
}

TEST(Inputs, hold_the_bits_of_a_step_alone_and_are_read_again_only_when_no_byte_matches) {
    constexpr int32_t STEP_INDEX = 7;
    constexpr loop_step ONE = {5, 2, 3, 4, 0, 0};
    constexpr loop_step TWO = {0, 2, 0, 2, 13, 2};
    constexpr loop_step BYTE_14 = {1, 2, 1, 2, 14, 2};
    constexpr loop_step BYTE_0 = {0, 1, 0, 1, 0, 0};
    const struct {
        loop_step step;
        input_bytes read;
        uint8_t compared; // input bytes of the module
        int32_t attempts;
        int32_t errors;
        int32_t wrong;
    } cases[] = {
        {ONE, {{3, 0x08}}, 14, 1, 0, 0},
        {ONE, {}, 14, 1, 1, 0x00},
        {ONE, {{3, 0x09}}, 14, 1, 1, 0x09},
        {ONE, {{3, 0x10}}, 14, 1, 1, 0x10},
        {ONE, {{3, 0x08}, {0, 0xFF}, {2, 0xFF}, {13, 0xFF}}, 14, 1, 0, 0}, // not named
        {TWO, {{0, 0x02}, {13, 0x02}}, 14, 1, 0, 0},
        {TWO, {{0, 0x02}}, 14, 1, 1, 0x00},
        {TWO, {{0, 0x02}, {13, 0x03}}, 14, 1, 1, 0x03},
        {BYTE_14, {{1, 0x02}}, 14, 1, 0, 0},
        {BYTE_14, {{1, 0x02}}, 15, 1, 1, 0x00},
        {BYTE_0, {{0, 0x03}}, 14, 1, 0, 0}, // the bytes after it match
        {BYTE_0, {{0, 0x80}}, 1, 5, 1, 0x80},
    };
    for (const auto &c : cases) {
        TestRecord record = {};
        int32_t attempts = 0;
        for (int32_t attempt = 0; attempt < 5; ++attempt, ++attempts)
            attempt =
                compare_inputs(record, reply_with(c.read), c.step, STEP_INDEX, c.compared, attempt);
        SCOPED_TRACE(testing::Message() << &c - cases);
        EXPECT_EQ(attempts, c.attempts);
        EXPECT_EQ(record.errors2, c.errors);
        EXPECT_EQ(record.hist_next, c.errors);
        EXPECT_EQ(record.hist[0].position, c.errors * STEP_INDEX);
        EXPECT_EQ(record.hist[0].value, c.wrong);
    }
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
