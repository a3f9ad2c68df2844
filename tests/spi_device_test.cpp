// What is recognised in an SPI transfer, and how an eeprom pass is timed.
#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "fio/spi_device_test.h"
#include "fio/spi_fio_exchange.h"

namespace {

using spi_area = std::array<uint8_t, SPI_AREA_BYTES>;

constexpr uint8_t MARKER = '1' + 0x80;
constexpr size_t LENGTH = 9;

// A good reply of LENGTH bytes at a position, cut off at the end of the area.
void put_reply(spi_area &area, size_t at) {
    std::array<uint8_t, LENGTH> reply = {MARKER, 1, 2, 3, 4, 5, 6, 7};
    fio_check_append(reply, LENGTH - 1);
    std::copy_n(reply.begin(), std::min(LENGTH, area.size() - at), area.begin() + at);
}

TEST(SpiReply, the_check_byte_makes_the_exclusive_or_of_a_block_0xff) {
    std::array<uint8_t, 4> block = {0xBC, 219, 0, 0x77};
    fio_check_append(block, 2);
    EXPECT_EQ(block[2], 0xFF ^ 0xBC ^ 219);
    EXPECT_EQ(block[3], 0x77);
    EXPECT_TRUE(fio_check_verify(std::span(block).first(3)));
    EXPECT_FALSE(fio_check_verify(std::span(block).first(2)));
    block[1] ^= 0x10;
    EXPECT_FALSE(fio_check_verify(std::span(block).first(3)));
}

TEST(SpiReply, it_must_end_before_the_last_byte_of_the_area) {
    for (const size_t at : std::to_array<size_t>({0, 57, 118, 119, 120, 127})) {
        spi_area area = {};
        put_reply(area, at);
        const auto found = find_spi_reply(area, MARKER, LENGTH);
        ASSERT_EQ(found.has_value(), at <= 118) << at;
        if (found) {
            EXPECT_EQ(found->data(), area.data() + at);
            EXPECT_EQ(found->size(), LENGTH);
        }
    }
    EXPECT_FALSE(find_spi_reply(spi_area{}, MARKER, LENGTH));
}

TEST(SpiReply, only_the_first_marker_counts) {
    spi_area area = {};
    put_reply(area, 40);
    area[10] = MARKER;
    EXPECT_FALSE(find_spi_reply(area, MARKER, LENGTH));
    put_reply(area, 10);
    area[13] ^= 1;
    EXPECT_FALSE(find_spi_reply(area, MARKER, LENGTH)) << "its check byte is wrong";
}

TEST(SpiMemory, it_is_read_whole_or_not_and_one_that_never_has_anything_to_read_ends_the_wait) {
    char path[] = "/tmp/hk_memory_XXXXXX";
    TestRecord record = {};
    const int file = mkstemp(path);
    ASSERT_EQ(ftruncate(file, 31), 0);
    spi_read_device(record, path, 32);
    EXPECT_EQ(record.errors2, 1);
    ASSERT_EQ(ftruncate(file, 32), 0);
    spi_read_device(record, path, 32);
    EXPECT_EQ(record.read_count, 1u);
    (void)close(file);
    (void)unlink(path);
    spi_read_device(record, path, 32);
    EXPECT_EQ(record.errors, 1);
    ASSERT_EQ(mkfifo(path, 0600), 0);
    spi_read_device(record, path, 32);
    (void)unlink(path);
    EXPECT_EQ(record.errors2, 2);
    EXPECT_EQ(record.read_count, 1u);
}

TEST(EepromPass, it_may_cross_one_second_within_100_ms_and_ends_the_reads_otherwise) {
    const struct {
        timeval begin;
        timeval end;
        int32_t flag;
        const char *message;
    } cases[] = {
        {{5, 100}, {5, 100}, 1, ""},
        {{5, 100}, {5, 999999}, 1, ""},
        {{5, 100}, {5, 99}, 0, "a eeprom too long 5 63 5 64"},
        {{5, 950000}, {6, 40000}, 90000, ""},
        {{5, 950000}, {6, 50000}, 100000, ""},
        {{5, 950000}, {6, 50001}, 0, "eeprom too long 6 c351 5 e7ef0"},
        {{5, 950000}, {6, 960000}, 0, "an eeprom too long 6 ea600 5 e7ef0"},
        {{5, 950000}, {9, 10000}, 60000, ""},
        {{9, 950000}, {5, 10000}, 60000, ""},
        {{5, 0}, {6, 0}, 0, "an eeprom too long 6 0 5 0"},
    };
    for (const auto &pass : cases) {
        char message[EEPROM_MESSAGE_MAX];
        EXPECT_EQ(check_eeprom_timing(pass.begin, pass.end, message), pass.flag) << pass.message;
        EXPECT_STREQ(message, pass.message);
    }
}

} // namespace
