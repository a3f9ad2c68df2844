// The crossover test on the simulated board, on good cables and on bad ones.

#include <gtest/gtest.h>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

constexpr size_t BAD = 0;    // bad frames, line faults, runs of silence
constexpr size_t FAILED = 1; // failed or empty reads
constexpr size_t LATE = 2;   // time-outs

TEST(Crossover, on_good_wiring_counts_frames_and_no_error) {
    struct {
        std::vector<std::string> board;
        std::vector<std::string> arguments;
        std::vector<std::string> names;
    } const cases[] = {
        {{"--cable", "2-8"}, {"-d1", "-E28"}, {"sp2 loop", "sp8 loop"}},
        {{"--loop", "2"}, {"-d1", "-E2"}, {"sp2 loop"}},
        {{"--loop", "5s"}, {"-d1", "-h", "-E55"}, {"sp5 loop"}},
        {{"--cable", "2s-8s"}, {"-d1", "-h", "-E28"}, {"sp2 loop", "sp8 loop"}},
        {{"--cable", "2-8"}, {"-d1", "-b", "38400", "-E28"}, {"sp2 loop", "sp8 loop"}},
    };
    for (const auto &c : cases) {
        board_run run = board_run::stress(c.board, c.arguments);
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, second_count_is_at_least{50});
        ASSERT_EQ(items.size(), c.names.size());
        for (size_t i = 0; i < items.size(); ++i) {
            EXPECT_EQ(items[i].name, c.names[i]);
            EXPECT_EQ(items[i].errors[BAD], 0);
            EXPECT_LE(items[i].counts[0] - items[i].counts[1], 1 + items[i].errors[FAILED]);
        }
        EXPECT_EQ(run.stop(), 0);
    }
}

TEST(Crossover, a_line_that_is_not_wired_counts_two_errors_a_port) {
    board_run run = board_run::stress({"--cable", "2-8", "--fault", "lines:2-8"}, {"-d1", "-E28"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, second_count_is_at_least{20});
    EXPECT_EQ(items[0].errors[BAD], 2);
    EXPECT_EQ(items[1].errors[BAD], 2);
}

TEST(Crossover, the_sync_and_the_panel_port_are_not_asked_for_modem_lines) {
    board_run run = board_run::stress(
        {"--loop", "5", "--loop", "6", "--fault", "lines:5", "--fault", "lines:6"},
        {"-d1", "-E5", "-E6"});
    ASSERT_TRUE(run.wait_until_running());
    for (const auto &item : lists_until(run, second_count_is_at_least{20}))
        EXPECT_EQ(item.errors[BAD], 0) << item.name;
}

TEST(Crossover, a_flipped_bit_leaving_x_counts_in_x_with_the_frame_length_and_the_byte) {
    board_run run = board_run::stress({"--cable", "2-8", "--fault", "flip:2:10"}, {"-d1", "-E28"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[0].errors[BAD] >= 5; });
    EXPECT_EQ(items[1].errors[BAD], 0) << "the way from y to x is good";
    for (const auto &sample : items[0].samples) {
        EXPECT_GE(sample[0], 3) << "the frame's length";
        EXPECT_LE(sample[0], 15);
    }
    // One frame in ten is bad, counted in frames that have left the port.
    EXPECT_NEAR(static_cast<double>(items[0].counts[0]) / 10,
                static_cast<double>(items[0].errors[BAD]), 2);
}

TEST(Crossover, the_first_three_frames_from_x_count_as_good_whatever_they_hold) {
    board_run run = board_run::stress({"--loop", "2", "--fault", "flip:2:1"}, {"-d1", "-E2"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[0].errors[BAD] >= 5; });
    EXPECT_EQ(items[0].counts[1], 3);
}

TEST(Crossover, bad_frames_leaving_y_share_the_ring_bookkeeping_with_x) {
    // Every frame from y is bad and every frame from x good, so that x's index stays 0: all samples
    // of y fall into its slot 0, and its own index runs on without an end.
    board_run run = board_run::stress({"--cable", "2-8", "--fault", "flip:8:1"}, {"-d1", "-E28"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[1].errors[BAD] >= 20; });
    EXPECT_EQ(items[0].errors[BAD], 0);
    EXPECT_EQ(items[1].counts[1], 0) << "no grace in this direction";
    // The list takes an index beyond the ring as slot 7, which nothing was written to.
    for (const auto &sample : items[1].samples)
        EXPECT_EQ(sample[0], 0);
}

TEST(Crossover, a_cut_before_any_frame_arrived_is_no_run_of_silence) {
    board_run run = board_run::stress({"--cable", "2-8", "--fault", "cut:2", "--fault", "cut:8"},
                                      {"-d1", "-E28"});
    ASSERT_TRUE(run.wait_until_running());
    // Time-outs stand in y's record, x's has the number before; a list may fall between the two.
    const auto items = lists_until(run, [](const std::vector<result_line> &seen) {
        return seen[0].errors[FAILED] >= 10 && seen[0].errors[LATE] == seen[1].errors[LATE] - 1;
    });
    EXPECT_EQ(items[0].errors[BAD], 0);
    EXPECT_EQ(items[1].errors[BAD], 0);
    EXPECT_GE(items[1].errors[FAILED], 9);
    EXPECT_GE(items[1].errors[LATE], 10);
    EXPECT_EQ(items[0].counts[1], 0);
}

TEST(Crossover, a_silence_of_more_than_three_reads_after_data_moves_to_the_bad_counter) {
    board_run run = board_run::stress({"--loop", "2", "--fault", "pull:2:20"}, {"-d1", "-E2"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[0].errors[FAILED] >= 12; });
    EXPECT_EQ(items[0].counts[1], 20);
    // Four failed reads in a row move as four at the next turn, and the count begins anew.
    EXPECT_EQ(items[0].errors[BAD] % 4, 0);
    EXPECT_NEAR(static_cast<double>(items[0].errors[BAD]),
                static_cast<double>(items[0].errors[FAILED]), 4);
}

TEST(Crossover, lost_frames_count_as_failed_reads_of_their_transmitter) {
    board_run run = board_run::stress({"--cable", "2-8", "--fault", "drop:8:5"}, {"-d1", "-E28"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[1].errors[FAILED] >= 5; });
    EXPECT_EQ(items[1].errors[BAD], 0);
    EXPECT_EQ(items[1].errors[LATE], 0) << "this direction has no deadline";
    EXPECT_EQ(items[0].errors[FAILED], 0);
}

TEST(Crossover, a_port_that_is_missing_is_named_and_ends_the_test) {
    board_run no_x = board_run::stress({"--port", "8"}, {"-d1", "-E28"});
    EXPECT_TRUE(no_x.wait_for_log("Couldn't open SP2"));
    board_run no_y = board_run::stress({"--port", "2"}, {"-d1", "-E28"});
    EXPECT_TRUE(no_y.wait_for_log("Couldn't open SP8"));
    ASSERT_TRUE(no_y.wait_until_running());
    const auto items = lists_until(no_y, [](const auto &) { return true; });
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0].name, "sp0 loop") << "x's record was never taken over";
    EXPECT_EQ(items[1].name, "sp2 loop");
}

} // namespace
