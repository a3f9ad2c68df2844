// A field I/O module behind its SPI chip select, byte by byte.
#include "simulator/devices/spi/spi_selection.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace simulator {

namespace {

constexpr int TYPE_OF_MODULE = 221;
constexpr uint32_t CLOCK_HZ = 250'000;
constexpr uint8_t CHECK = 0xFF ^ '<';
const spi_bytes IDENTIFY = {'<', CHECK};
const spi_bytes IDENTITY = {'<' + 0x80, TYPE_OF_MODULE, 0xFF ^ ('<' + 0x80) ^ TYPE_OF_MODULE};

struct spi_bench : testing::Test {
    fio_module module{"manufacturer", TYPE_OF_MODULE, spi_harness(TYPE_OF_MODULE)};
    spi_selection selection;

    // What comes back for bytes and as many zeros after them as make a message of that length.
    spi_bytes shift(spi_bytes sent, size_t length) {
        sent.resize(length);
        return selection.shift(sent, &module, CLOCK_HZ);
    }
    static bool has_identity(const spi_bytes &received) {
        return std::search(received.begin(), received.end(), IDENTITY.begin(), IDENTITY.end()) !=
               received.end();
    }
    bool replies_with(const char *text) {
        std::vector<fault> rows;
        EXPECT_TRUE(add_fault(text, 0, rows));
        fio_module faulty("manufacturer", TYPE_OF_MODULE, spi_harness(TYPE_OF_MODULE));
        EXPECT_TRUE(faulty.take_fault(rows[0], SPI_INPUT_BYTES));
        spi_bytes sent = IDENTIFY;
        sent.resize(40);
        const bool answered = has_identity(spi_selection().shift(sent, &faulty, CLOCK_HZ));
        EXPECT_EQ(rows[0].strike_count(), 1U) << text;
        return answered;
    }
};

TEST_F(spi_bench, a_reply_follows_in_the_same_selection_also_in_parts) {
    EXPECT_TRUE(has_identity(shift(IDENTIFY, 20)));
    selection.release();
    spi_bytes parts = shift({'<'}, 1);
    for (const spi_bytes &part : {shift({CHECK}, 1), shift({}, 7), shift({}, 7)})
        parts.insert(parts.end(), part.begin(), part.end());
    EXPECT_TRUE(has_identity(parts));
}

TEST_F(spi_bench, a_release_ends_the_request_and_the_reply) {
    (void)shift({'<'}, 1);
    selection.release();
    EXPECT_FALSE(has_identity(shift({CHECK}, 20)));
    selection.release();
    (void)shift(IDENTIFY, 3);
    selection.release();
    EXPECT_FALSE(has_identity(shift({}, 20)));
}

TEST_F(spi_bench, a_request_one_bit_late_is_none) {
    EXPECT_EQ(one_bit_late(spi_bytes{0x81, 0x80, 0x01}), (spi_bytes{0x40, 0xC0, 0x00}));
    EXPECT_FALSE(has_identity(shift(one_bit_late(IDENTIFY), 20)));
}

TEST_F(spi_bench, faults_of_the_reply_strike) {
    EXPECT_FALSE(replies_with("lose:manufacturer:1"));
    EXPECT_FALSE(replies_with("corrupt:manufacturer:1"));
    EXPECT_FALSE(replies_with("check:manufacturer:1"));
    EXPECT_FALSE(replies_with("silent:manufacturer:12"));
    EXPECT_FALSE(replies_with("type:manufacturer:3"));
    EXPECT_FALSE(replies_with("late:manufacturer:1"));
    EXPECT_FALSE(replies_with("delay:manufacturer:2")) << "62 bytes later";
}

} // namespace

} // namespace simulator
