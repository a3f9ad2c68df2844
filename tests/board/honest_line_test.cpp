// The board is a witness only if it convicts: each call that a serial line or an SPI device needs
// is taken away from the unmodified program (swallowed_calls.cpp), and the run must then show
// errors; with the call it shows none. The runs have the board's own time, so that a busy machine
// is no excuse.

#include <algorithm>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

using Words = std::vector<std::string>;
using Results = std::vector<result_line>;

// Whether a list shows what the missing call does.
using conviction = bool (*)(const Results &lines);

bool hears_nothing(const Results &lines) {
    return lines[0].counts[0] >= 2 && lines[0].errors[1] > 0 &&
           std::ranges::all_of(
               lines, [](const result_line &line) { return line.counts[1] == 0; });
}
bool has_bad_lines_or_blocks(const Results &lines) {
    return std::ranges::all_of(
        lines, [](const result_line &line) { return line.errors[0] >= 2; });
}
bool reads_no_reply(const Results &lines) {
    return lines[0].counts[0] >= 2 && lines[0].counts[1] == 0 &&
           lines[0].errors[0] + lines[0].errors[1] >= 2;
}

struct line_case {
    const char *name;
    const char *swallowed;
    Words board;
    Words arguments;
    conviction is_convicted;
};

void PrintTo(const line_case &tested, std::ostream *out) {
    *out << tested.name;
}

const line_case CASES[] = {
    {"settings", "settings", {"--cable", "2-8"}, {"-d1", "-E28"}, hears_nothing},
    {"synchronous_mode", "sync_mode", {"--loop", "5s"}, {"-d1", "-h", "-E55"}, hears_nothing},
    {"rts_off", "rts_off", {"--cable", "2-8"}, {"-d1", "-E28"}, has_bad_lines_or_blocks},
    {"drain_and_sleeps", "pauses", {"--cable", "2-8"}, {"-d1", "-E28"}, has_bad_lines_or_blocks},
    {"spi_settings_L", "spi", {"--spi", "219"}, {"-d1", "-L"}, reads_no_reply},
    {"spi_settings_S4", "spi", {"--spi", "reserved=loop"}, {"-d1", "-S4"}, reads_no_reply},
    {"spi_settings_S8", "spi", {"--spi", "loop"}, {"-d1", "-S8"}, reads_no_reply},
};

class HonestLine : public testing::TestWithParam<line_case> {
protected:
    // The library is the host's; an emulated program would need one of its own.
    void SetUp() override {
        if (sizeof(HK_EMULATOR) > 1)
            GTEST_SKIP() << "a library cannot be loaded before an emulated program";
#if defined(HK_SANITIZED)
        GTEST_SKIP() << "the sanitizer's own library has to be the first one";
#endif
    }
};

Words in_own_time(const char *seconds, Words board) {
    board.insert(board.begin(), {"--clock", "virtual", "--for", seconds});
    return board;
}

Results end_of(const line_case &tested, const char *swallowed) {
    Words command = {"/usr/bin/env", std::string("LD_PRELOAD=") + SWALLOWED_CALLS_PATH,
                     std::string("HK_SWALLOW=") + swallowed, HK_STRESS_PATH};
    command.insert(command.end(), tested.arguments.begin(), tested.arguments.end());
    board_run run = board_run::program(in_own_time("10", tested.board), command);
    EXPECT_EQ(run.finish(), 0);
    return last_list(run);
}

TEST_P(HonestLine, shows_errors_without_the_call) {
    EXPECT_TRUE(GetParam().is_convicted(end_of(GetParam(), GetParam().swallowed)));
}

TEST_P(HonestLine, shows_none_with_it) {
    for (const result_line &line : end_of(GetParam(), "nothing")) {
        EXPECT_GE(line.counts[1], 100);
        EXPECT_EQ(line.errors, (std::array<int64_t, 3>{}));
    }
}

INSTANTIATE_TEST_SUITE_P(Takes, HonestLine, testing::ValuesIn(CASES),
                         [](const auto &tested) { return std::string(tested.param.name); });

TEST(LineSpeeds, give_errors_when_the_ends_differ) {
    board_run run = board_run::stress(in_own_time("10", {"--cable", "1-4"}),
                                      {"-d1", "-b1200", "-C1", "-b115200", "-P4"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_GT(last_list(run)[0].errors[0], 0);
}

struct moment {
    double seconds;
    int64_t blocks;
};

std::vector<moment> blocks_sent(const board_run &run) {
    std::vector<moment> moments;
    for (const log_line &line : run.log)
        if (const auto item = parse_result_line(line.text); item && item->name == "sp4 produce")
            moments.push_back({static_cast<double>(line.time_ms) / 1000, item->counts[0]});
    return moments;
}

// A producer's turn is a block of 16 characters of 10 bits, and a pause of 2 ms.
TEST(LineSpeeds, give_the_rate_of_the_line_and_the_pauses) {
    for (const int bps : {1200, 9600, 38400, 115200}) {
        board_run run =
            board_run::stress(in_own_time("60", {"--cable", "1-4"}),
                              {"-d1", "-l10", "-b" + std::to_string(bps), "-C1", "-P4"});
        EXPECT_EQ(run.finish(), 0);
        const std::vector<moment> moments = blocks_sent(run);
        ASSERT_GE(moments.size(), 4U);
        const moment first = moments[1];
        const moment last = moments.back();
        const double turn_s = 160.0 / bps + 0.002;
        EXPECT_NEAR(static_cast<double>(last.blocks - first.blocks) * turn_s,
                    last.seconds - first.seconds, 0.02 * (last.seconds - first.seconds))
            << bps;
    }
}

} // namespace
