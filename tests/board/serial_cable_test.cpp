// The serial tests against a far end that the case plays itself.

#include <array>
#include <csignal>
#include <fcntl.h>
#include <numeric>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "serial/start.h"
#include "tests/board/serial_cable.h"

namespace {

// A test may read the other port as soon as it has drained the one it wrote to: on the simulated
// board that must not depend on how busy the machine is.
TEST_F(SerialCable, what_was_drained_can_be_read_at_the_other_end_at_once) {
    for (const bool is_synchronous : {false, true}) {
        const unique_fd own_end(is_synchronous ? open_sync_port(OWN_PORT)
                                               : open_async_port(OWN_PORT, O_RDWR));
        if (is_synchronous)
            far_end.reset(open_sync_port(FAR_PORT));
        for (int round = 0; round < 1000; ++round) {
            ASSERT_NO_FATAL_FAILURE(send(GOOD_BLOCK));
            int unread = 0;
            ASSERT_EQ(ioctl(own_end.get(), FIONREAD, &unread), 0);
            ASSERT_EQ(unread, static_cast<int>(GOOD_BLOCK.size())) << "round " << round;
            std::array<uint8_t, 16> arrived;
            ASSERT_EQ(read(own_end.get(), arrived.data(), arrived.size()),
                      static_cast<ssize_t>(GOOD_BLOCK.size()));
        }
    }
}

using SerialReceiver = SerialCable;

TEST_F(SerialReceiver,
       a_hold_counts_the_silence_since_the_last_block_and_what_comes_under_it_is_stale) {
    ASSERT_NO_FATAL_FAILURE(start_receiver());
    ASSERT_NO_FATAL_FAILURE(wait_for_silence(3));
    ASSERT_NO_FATAL_FAILURE(hold());
    EXPECT_EQ(own().errors2, 0) << "before the first block silence is never a bad block";
    ASSERT_TRUE(
        release_until([heard = own().errors] { return shared_word(own().errors) > heard; }));

    ASSERT_NO_FATAL_FAILURE(send_block());
    ASSERT_NO_FATAL_FAILURE(wait_for_silence(4));
    const int32_t before = shared_word(own().errors); // a block clears what came before it
    ASSERT_NO_FATAL_FAILURE(send_block());
    ASSERT_NO_FATAL_FAILURE(wait_for_silence(2));
    EXPECT_EQ(shared_word(own().errors2), 0) << "only when held";
    ASSERT_NO_FATAL_FAILURE(hold());
    const int32_t silent = own().errors;
    const int32_t carried = own().errors2;
    EXPECT_GE(carried, 2);
    EXPECT_LE(carried, silent - before);
    EXPECT_EQ(own().hist_next, 0) << "silence has no sample";

    for (int i = 0; i < 40; ++i)
        ASSERT_NO_FATAL_FAILURE(send(Bytes(8, 'U')));
    ASSERT_TRUE(release_until([&] { return shared_word(own().errors) > silent; }));
    EXPECT_EQ(own().read_count, 2u);
    ASSERT_NO_FATAL_FAILURE(send_block());
    EXPECT_EQ(own().read_count, 3u);
    EXPECT_EQ(own().errors2, carried);
}

TEST_F(SerialReceiver, a_port_that_becomes_descriptor_0_counts_as_a_failed_open) {
    const unique_fd input(dup(STDIN_FILENO));
    (void)close(STDIN_FILENO);
    EXPECT_GT(serial_loop_test(0, OWN_PORT, paren_pattern), 0);
    EXPECT_EQ(dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_TRUE(wait_until([] { return shared_word(own().pid) == PID_FINISHED; }));
    EXPECT_EQ(own().errors3, 1);
}

TEST_F(SerialReceiver, a_stop_takes_effect_only_once_the_test_is_held) {
    ASSERT_NO_FATAL_FAILURE(start_receiver());
    set_shared_word(own().pid, PID_STOP);
    ASSERT_NO_FATAL_FAILURE(send_block());
    ASSERT_NO_FATAL_FAILURE(wait_for_silence(2));
    EXPECT_EQ(own().pid, PID_STOP);
    set_shared_word(own().hold, HOLD_REQUESTED);
    EXPECT_TRUE(wait_until([] { return shared_word(own().pid) == PID_FINISHED; }));
}

TEST_F(SerialReceiver, a_transfer_length_outside_its_buffer_does_no_harm) {
    for (const int32_t length : {-5, 512, 100000}) {
        xfer_length = length;
        ASSERT_NO_FATAL_FAILURE(start_receiver());
        ASSERT_NO_FATAL_FAILURE(send_block());
        EXPECT_EQ(own().prev_read_count, 1u) << length;
        end_test();
    }
}

using SerialProducer = SerialCable;

constexpr int GENERATED = 40; // a record that no test has claimed: its read_count counts here

int32_t counting_pattern(const uint8_t *received, uint8_t *expected, int32_t length) {
    if (received == nullptr)
        ++status_table->records[GENERATED].read_count;
    return paren_pattern(received, expected, length);
}

// The carrier goes while the port watches it: the kernel hangs the port up.
TEST_F(SerialProducer, a_port_that_hangs_up_is_an_error_a_turn_and_the_pattern_goes_on) {
    ASSERT_GT(producer_test(0, OWN_PORT, counting_pattern), 0);
    ASSERT_TRUE(wait_until([&] { return shared_count(own().write_count) > 0; }));
    ASSERT_NO_FATAL_FAILURE(hold());
    const uint32_t written = own().write_count;

    const unique_fd line(open("/dev/sp1", O_RDWR | O_NOCTTY));
    termios settings = {};
    ASSERT_EQ(tcgetattr(line.get(), &settings), 0);
    settings.c_cflag &= ~static_cast<tcflag_t>(CLOCAL);
    ASSERT_EQ(tcsetattr(line.get(), TCSANOW, &settings), 0);
    ASSERT_EQ(set_rts(far_end.get(), 0), 0);
    ASSERT_TRUE(release_until([&] { return shared_word(own().errors) >= 3; }));
    ASSERT_NO_FATAL_FAILURE(hold());
    EXPECT_EQ(own().write_count, written);
    EXPECT_EQ(record(GENERATED).read_count, written + static_cast<uint32_t>(own().errors));
}

using SerialEcho = SerialCable;

TEST_F(SerialEcho, without_its_port_ends_and_counts_nothing) {
    ASSERT_GT(echo_test(0, "9none", 0), 0);
    EXPECT_TRUE(wait_until([] { return shared_word(own().pid) == PID_FINISHED; }));
    EXPECT_EQ(own().test_letter, 'E');
    EXPECT_EQ(own().unit, 0);
    EXPECT_EQ(own().errors + own().errors2 + own().errors3, 0);
}

TEST_F(SerialEcho, sends_back_what_came_also_under_a_hold_and_counts_the_bytes_three_times) {
    ASSERT_GT(echo_test(0, OWN_PORT, 0), 0);
    ASSERT_TRUE(wait_until([&] { return shared_word(own().unit) == 1; }));
    ASSERT_NO_FATAL_FAILURE(hold());
    ASSERT_NO_FATAL_FAILURE(send(GOOD_BLOCK));
    EXPECT_EQ(own().read_count, 0u);
    ASSERT_TRUE(release_until([&] { return shared_count(own().write_count) == 8; }));
    EXPECT_EQ(receive(8), GOOD_BLOCK);

    Bytes longer(700); // more than one read takes
    std::iota(longer.begin(), longer.end(), uint8_t{1});
    ASSERT_NO_FATAL_FAILURE(send(longer));
    EXPECT_EQ(receive(longer.size()), longer);
    EXPECT_TRUE(wait_until([&] { return shared_count(own().write_count) == 708; }));
    EXPECT_EQ(own().read_count, 708u);
    EXPECT_EQ(own().prev_read_count, 708u);
    EXPECT_EQ(own().errors, 0);
}

} // namespace
