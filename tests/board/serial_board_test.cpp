// Serial receivers and producers as the operator starts them, on cables of the simulated board.

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

using Results = std::vector<result_line>;

constexpr size_t BAD_BLOCKS = 0; // of a line's error numbers

TEST(SerialLink, a_receiver_can_be_fed_from_a_file) {
    char path[] = "/tmp/hk_feed_XXXXXX";
    const int file = mkstemp(path);
    const std::string data = std::string(20, ')') + '('; // 16 good bytes, then a block of five
    ASSERT_EQ(write(file, data.data(), data.size()), static_cast<ssize_t>(data.size()));
    close(file);
    for (const std::string mode : {"", "s"}) { // asynchronous, synchronous
        const std::string hdlc = mode.empty() ? "-e" : "-h";
        board_run run = board_run::stress({"--feed", "1" + mode + ":" + path}, {hdlc, "-C1"});
        const Results end = lists_until(run, [](const Results &now) {
            return now[0].errors[BAD_BLOCKS] >= 5 && now[0].counts[1] >= 5;
        });
        ASSERT_EQ(end.size(), 1u);
        for (const auto &[position, byte] : end[0].samples) {
            // 20 when the receiver came late and read both blocks as one
            EXPECT_TRUE(position == 4 || position == 20) << position;
            EXPECT_EQ(byte, '(');
        }
    }
    unlink(path);
}

} // namespace
