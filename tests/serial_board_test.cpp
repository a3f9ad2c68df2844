// Serial receivers and producers as the operator starts them, on cables of the simulated board.

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

using Words = std::vector<std::string>;
using Results = std::vector<result_line>;

// Which of a line's three error numbers is which.
enum { BAD_BLOCKS = 0, FAILED_OPENS = 1, SILENCE = 2 }; // of a receiver
enum { PRODUCER_ERRORS = 2 };

// The items of the run's last list.
Results last_list(const board_run &run) {
    Results results;
    size_t from = 0;
    while (const auto list = run.next_list(from)) {
        results.clear();
        for (const std::string &item : *list)
            results.push_back(parse_result_line(item).value_or(result_line()));
    }
    return results;
}

Results stop_and_list(board_run &run) {
    EXPECT_EQ(run.stop(), 0);
    return last_list(run);
}

TEST(SerialLink, every_block_of_a_clean_cable_is_good) {
    struct {
        const char *cable;
        Words arguments;
        int kind;
        const char *receiver;
        const char *producer;
    } const links[] = {
        {"1-2", {"-C1", "-P2"}, 3, "sp1 consume", "sp2 produce"},
        {"1-2", {"-C2", "-P1"}, 2, "sp2 consume", "sp1 produce"},
        {"3-5", {"-C3", "-P5"}, 0, "sp3 consume", "sp5 produce"},
        {"1s-2s", {"-h", "-C1", "-P2"}, 3, "sp1 consume", "sp2 produce"},
    };
    for (const auto &link : links) {
        SCOPED_TRACE(link.receiver);
        board_run run = board_run::stress({"--cable", link.cable}, link.arguments);
        lists_until(run, [](const Results &now) { return now[0].counts[1] >= 100; });
        const Results end = stop_and_list(run);
        ASSERT_EQ(end.size(), 2u);
        EXPECT_EQ(end[0].name, link.receiver);
        EXPECT_EQ(end[0].kind, link.kind);
        EXPECT_EQ(end[0].errors[BAD_BLOCKS], 0);
        EXPECT_EQ(end[0].errors[FAILED_OPENS], 0);
        EXPECT_EQ(end[1].name, link.producer);
        EXPECT_EQ(end[1].kind, link.kind);
        EXPECT_EQ(end[1].errors[PRODUCER_ERRORS], 0);
        // The producer counts behind the write, and a kill may come between.
        EXPECT_LE(end[0].counts[0], end[1].counts[0] + 1);
        EXPECT_LE(end[0].counts[0] - end[0].counts[1], 1);
        EXPECT_NE(run.output.find(" consume, "), std::string::npos);
        EXPECT_NE(run.output.find(" produce, wrote "), std::string::npos);
    }
}

// The cable's flipped bit moves on by one byte and one bit each time.
TEST(SerialLink, a_flipped_bit_is_a_bad_block_with_its_place_and_byte) {
    board_run run = board_run::stress({"--cable", "1-2", "--fault", "flip:2:10"}, {"-C1", "-P2"});
    lists_until(run, [](const Results &now) { return now[0].errors[BAD_BLOCKS] >= 9; });
    const result_line end = stop_and_list(run).at(0);
    EXPECT_GE(end.errors[BAD_BLOCKS], 9);
    EXPECT_GT(end.counts[1], 0);
    EXPECT_LE(end.counts[0] - end.counts[1] - end.errors[BAD_BLOCKS], 1);
    for (const auto &[position, byte] : end.samples)
        EXPECT_EQ(byte, ')' ^ 1 << position % 8) << "at " << position;
    EXPECT_NE(end.samples[0], end.samples[1]);
}

TEST(SerialLink, a_lost_block_is_no_bad_block) {
    board_run run = board_run::stress({"--cable", "1-2", "--fault", "drop:2:2"}, {"-C1", "-P2"});
    lists_until(run, [](const Results &now) { return now[0].counts[1] >= 50; });
    const Results end = stop_and_list(run);
    EXPECT_LE(end.at(0).counts[0], end.at(1).counts[0] / 2 + 1);
    EXPECT_EQ(end[0].errors[BAD_BLOCKS], 0);
}

TEST(SerialLink, a_cut_cable_is_silence_and_nothing_else) {
    board_run run = board_run::stress({"--cable", "1-2", "--fault", "cut:2"}, {"-C1", "-P2"});
    lists_until(run, [](const Results &now) {
        return now[0].errors[SILENCE] >= 3 && now[1].counts[0] >= 50;
    });
    const Results end = stop_and_list(run);
    EXPECT_EQ(end.at(0).counts[0], 0);
    EXPECT_GE(end[0].errors[SILENCE], 3);
    EXPECT_EQ(end[0].errors[BAD_BLOCKS], 0);
    EXPECT_GE(end[1].counts[0], 50) << "the producer does not notice";
    EXPECT_EQ(end[1].errors[PRODUCER_ERRORS], 0);
}

TEST(SerialLink, a_receiver_can_be_fed_from_a_file) {
    char path[] = "/tmp/hk_feed_XXXXXX";
    const int file = mkstemp(path);
    const std::string data = std::string(20, ')') + '('; // 16 good bytes, then a block of five
    ASSERT_EQ(write(file, data.data(), data.size()), static_cast<ssize_t>(data.size()));
    close(file);
    board_run run = board_run::stress({"--feed", std::string("1:") + path}, {"-C1"});
    const Results end = lists_until(run, [](const Results &now) {
        return now[0].errors[BAD_BLOCKS] >= 5 && now[0].counts[1] >= 5;
    });
    unlink(path);
    ASSERT_EQ(end.size(), 1u);
    for (const auto &[position, byte] : end[0].samples) {
        // 20 when the receiver came late and read both blocks as one
        EXPECT_TRUE(position == 4 || position == 20) << position;
        EXPECT_EQ(byte, '(');
    }
}

TEST(SerialLink, ports_that_are_not_there_end_their_tests_and_the_run) {
    board_run run = board_run::stress({}, {"-C1", "-P6"});
    EXPECT_EQ(run.finish(), 0);
    const Results end = last_list(run);
    ASSERT_EQ(end.size(), 2u);
    EXPECT_EQ(end[0].name, "sp0 consume");
    EXPECT_EQ(end[0].errors[FAILED_OPENS], 1);
    EXPECT_EQ(end[0].errors[SILENCE], 0);
    EXPECT_EQ(end[1].name, "sp0 produce");
    EXPECT_EQ(end[1].errors[PRODUCER_ERRORS], 1);
    EXPECT_EQ(end[1].counts[0], 0);
}

TEST(SerialLink, the_synchronous_link_has_one_owner) {
    struct {
        Words arguments;
        std::vector<int> kinds; // of the tests that started
    } const plans[] = {
        // clang-format off
        {{"-C5", "-C5"}, {1}},
        {{"-P5", "-P5"}, {0}},
        {{"-C5", "-F"}, {1}},
        {{"-F", "-P3"}, {10, 1}},
        {{"-C5", "-C3"}, {1}},
        {{"-P5", "-P3"}, {0}}, // the code stays
        {{"-C5", "-P5"}, {0}}, // the code is overwritten
        {{"-P3", "-C5"}, {1, 1}},
        {{"-P3", "-P3"}, {1, 1}},
        {{"-P5", "-P7", "-P5"}, {0, 0}},
        // clang-format on
    };
    for (const auto &plan : plans) {
        SCOPED_TRACE(testing::PrintToString(plan.arguments));
        board_run run = board_run::stress({"--cable", "3-5", "--port", "7"}, plan.arguments);
        std::vector<int> kinds;
        for (const result_line &line : list_now(run))
            kinds.push_back(line.kind);
        EXPECT_EQ(kinds, plan.kinds);
    }
}

TEST(SerialLink, every_receiver_is_followed_by_a_pause_started_or_not) {
    const auto start = std::chrono::steady_clock::now();
    board_run run = board_run::stress({"--port", "5"}, Words(20, "-C5"));
    ASSERT_TRUE(
        run.wait_until([&] { return run.errors.find("numproc 1 indx 1\n") != std::string::npos; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20 * 50));
}

} // namespace
