// An SPI memory that answers nothing, and how an eeprom pass is timed.
#include <array>
#include <sys/stat.h>

#include "fio/spi/spi_device.h"
#include "tests/support/scratch_directory.h"

namespace {

using SpiMemory = ScratchDirectoryTest;

TEST_F(SpiMemory, that_never_has_anything_to_read_ends_the_wait) {
    ASSERT_EQ(mkfifo("memory", 0600), 0);
    spi_read_device(record(1), "memory", 32);
    EXPECT_EQ(record(1).errors2, 1);
    EXPECT_EQ(record(1).read_count, 0u);
}

TEST(SpiLoopback, that_transfers_nothing_is_not_taken_for_good) {
    std::array<uint8_t, LOOPBACK_BYTES> sent;
    sent.fill('#');
    std::array<uint8_t, LOOPBACK_BYTES> reply = sent; // of the transfer before
    EXPECT_EQ(spi_manufacturer_poll(sent, reply, -1), 0);
}

TEST(EepromPass, it_may_cross_one_second_within_100_ms_and_ends_the_reads_otherwise) {
    const struct {
        timeval begin;
        timeval end;
        int32_t flag;
        const char *message;
    } cases[] = {
        {{5, 100}, {5, 100}, 1, ""},
        {{5, 100}, {5, 99}, 0, "a eeprom too long 5 63 5 64"},
        {{5, 950000}, {6, 50000}, 100000, ""},
        {{5, 950000}, {6, 50001}, 0, "eeprom too long 6 c351 5 e7ef0"},
        {{5, 950000}, {9, 10000}, 60000, ""},
        {{5, 0}, {6, 0}, 0, "an eeprom too long 6 0 5 0"},
    };
    for (const auto &pass : cases) {
        char message[EEPROM_MESSAGE_MAX];
        EXPECT_EQ(check_eeprom_timing(pass.begin, pass.end, message), pass.flag) << pass.message;
        EXPECT_STREQ(message, pass.message);
    }
}

} // namespace
