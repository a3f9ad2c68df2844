// The operator's faults of serial lines on the line itself.
#include "simulator/faults/direction_faults.h"
#include "tests/simulator/line_bench.h"

#include <gtest/gtest.h>

namespace simulator::line {

namespace {

constexpr int32_t SYNC_MODE = 1 | 10 << 8; // in memory 1, 10, 0, 0 on a little-endian host

struct faulty_bench : line_bench {
    std::vector<fault> rows;
    direction_faults from_one;
    direction_faults from_two;

    // The faults name port 1 or 2 of the bench. Windows count from the present moment.
    explicit faulty_bench(const std::vector<const char *> &texts, port_kind kind = {})
        : line_bench(kind) {
        for (const char *text : texts)
            EXPECT_TRUE(add_fault(text, 0, rows));
        for (const fault &row : rows) {
            row.start(now / 1000);
            (direction_faults::leaves(row) == (row.target == "1") ? from_one : from_two).add(row);
        }
        joint.set_faults(one, from_one);
        joint.set_faults(two, from_two);
    }

    // Sends chunks with silence between them. Returns what arrives of each, separated by bars.
    std::string send(const std::vector<std::string> &chunks) {
        std::string arrived;
        for (const std::string &chunk : chunks)
            arrived += sent_across(*this, chunk) + "|";
        return arrived;
    }
    uint64_t strikes() const {
        return rows[0].strike_count();
    }
};

TEST(LineFaults, strike_the_bytes_and_chunks_that_they_name) {
    const struct {
        const char *row;
        const char *arrives;
        uint64_t strikes;
    } cases[] = {
        {"drop:1:2", "abcd||abcd||", 2},
        {"cut:1", "||||", 4},
        {"pull:1:3", "abcd|abcd|abcd||", 1},
        {"flip:1:2", "abcd|`bcd|abcd|a`cd|", 2},
        {"lostbyte:1:5", "abcd|bcd|acd|abd|", 3},
        {"insert:1:6",
         "abcd|ab\xA5"
         "cd|abcd\xA5|abcd|",
         2},
        {"drop:1:1@1-3", "abcd|||abcd|", 2},
        {"cut:2", "abcd|abcd|abcd|abcd|", 0},
    };
    for (const auto &[row, arrives, strikes] : cases) {
        faulty_bench bench({row});
        bench.open_raw(9600);
        EXPECT_EQ(bench.send({"abcd", "abcd", "abcd", "abcd"}), arrives) << row;
        EXPECT_EQ(bench.strikes(), strikes) << row;
    }
}

TEST(LineFaults, a_low_stop_bit_is_a_framing_error_for_the_receiver) {
    faulty_bench bench({"framing:1:4"});
    bench.open_raw(9600);
    (void)bench.set(bench.two, [](tty_settings &wanted) { wanted.c_iflag = INPCK | PARMRK; });
    EXPECT_EQ(bench.send({"abcdef"}), std::string("abc\xFF\0d\xFF\0\xCA\x99\xFF\xFF|", 13))
        << "the receiver has lost its place until the line is idle";
    EXPECT_EQ(bench.strikes(), 1U);
}

TEST(LineFaults, a_stalled_port_keeps_its_bytes_and_sends_them_afterwards) {
    faulty_bench bench({"stall:1@0-5"});
    bench.open_raw(9600);
    EXPECT_EQ(bench.write(bench.one, "abc"), 3);
    bench.run(4 * SECOND);
    EXPECT_EQ(bench.read_all(bench.two), "");
    EXPECT_EQ(bench.request(bench.one, TIOCOUTQ), 3);
    bench.run(2 * SECOND);
    EXPECT_EQ(bench.read_all(bench.two), "abc");
    EXPECT_EQ(bench.strikes(), 1U);
}

TEST(LineFaults, a_clock_that_is_too_fast_sends_too_fast_and_garbles_beyond_5_per_cent) {
    const std::string text(96, 'U');
    for (const int percent : {1, 4, 20}) {
        faulty_bench bench({("speed:1:" + std::to_string(percent)).c_str()});
        bench.open_raw(9600);
        const int64_t begin = bench.now;
        (void)bench.write(bench.one, text);
        bench.drain(bench.one);
        const double expected_ms = 100.0 * 100 / (100 + percent);
        EXPECT_NEAR(static_cast<double>(bench.now - begin) / MILLISECOND, expected_ms, 0.2);
        bench.run(SECOND);
        EXPECT_EQ(bench.read_all(bench.two) == text, percent < 5) << percent;
    }
}

TEST(LineFaults, modem_lines_stick_at_the_port_that_is_named) {
    faulty_bench bench({"cts:2:0@0-5", "dcd:2:1"});
    (void)bench.open(bench.two);
    EXPECT_TRUE(bench.has_lines(bench.two, TIOCM_CAR)) << "stuck on, although nobody drives it";
    (void)bench.open(bench.one);
    EXPECT_FALSE(bench.has_lines(bench.two, TIOCM_CTS));
    EXPECT_TRUE(bench.has_lines(bench.one, TIOCM_CTS | TIOCM_CAR));
    bench.run(6 * SECOND);
    EXPECT_TRUE(bench.has_lines(bench.two, TIOCM_CTS));
    EXPECT_EQ(bench.strikes(), 1U);
}

TEST(LineFaults, on_a_synchronous_line_flip_loses_a_frame_and_garble_damages_one) {
    const struct {
        const char *row;
        const char *arrives;
    } cases[] = {
        {"flip:1:2", "abcd||abcd||"},
        {"drop:1:3", "abcd|abcd||abcd|"},
        {"garble:1:2", "abcd|`bcd|abcd|a`cd|"},
    };
    for (const auto &[row, arrives] : cases) {
        faulty_bench bench({row}, {.is_synchronous = true});
        for (port *each : {&bench.one, &bench.two}) {
            (void)bench.open(*each);
            bench.set_raw(*each, FRAME_BPS);
            (void)bench.request(*each, SYNC_MODE_REQUEST, SYNC_MODE);
        }
        EXPECT_EQ(bench.send({"abcd", "abcd", "abcd", "abcd"}), arrives) << row;
    }
}

} // namespace

} // namespace simulator::line
