// The board is a witness only if it convicts: each call that a serial line or an SPI device needs
// is taken away from the unmodified program (swallowed_calls.cpp), and the run must then show
// errors; with the call it shows none.

#include <algorithm>
#include <csignal>
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
    size_t certain = 1; // error counters that a busy machine does not move
};

void PrintTo(const line_case &tested, std::ostream *out) {
    *out << tested.name;
}

const line_case CASES[] = {
    {"settings", "settings", {"--cable", "2-8"}, {"-d1", "-E28"}, hears_nothing},
    {"synchronous_mode", "sync_mode", {"--loop", "5s"}, {"-d1", "-h", "-E55"}, hears_nothing},
    {"rts_off", "rts_off", {"--cable", "2-8"}, {"-d1", "-E28"}, has_bad_lines_or_blocks},
    {"drain_and_sleeps", "pauses", {"--cable", "2-8"}, {"-d1", "-E28"}, has_bad_lines_or_blocks},
    {"spi_settings_L", "spi", {"--spi", "219"}, {"-d1", "-L"}, reads_no_reply, 3},
    {"spi_settings_S4", "spi", {"--spi", "reserved=loop"}, {"-d1", "-S4"}, reads_no_reply, 3},
    {"spi_settings_S8", "spi", {"--spi", "loop"}, {"-d1", "-S8"}, reads_no_reply, 3},
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

board_run start(const line_case &tested, const char *swallowed) {
    Words command = {"/usr/bin/env", std::string("LD_PRELOAD=") + SWALLOWED_CALLS_PATH,
                     std::string("HK_SWALLOW=") + swallowed, HK_STRESS_PATH};
    command.insert(command.end(), tested.arguments.begin(), tested.arguments.end());
    return board_run::program(tested.board, command);
}

TEST_P(HonestLine, shows_errors_without_the_call) {
    board_run run = start(GetParam(), GetParam().swallowed);
    EXPECT_TRUE(GetParam().is_convicted(lists_until(run, GetParam().is_convicted)));
}

TEST_P(HonestLine, shows_none_with_it) {
    board_run run = start(GetParam(), "nothing");
    (void)lists_until(run, [](const Results &lines) { return lines[0].counts[1] >= 100; });
    run.signal(SIGINT);
    EXPECT_EQ(run.finish(), 0);
    for (const result_line &line : last_list(run))
        for (size_t i = 0; i < GetParam().certain; i++)
            EXPECT_EQ(line.errors[i], 0) << "error counter " << i + 1;
}

INSTANTIATE_TEST_SUITE_P(Takes, HonestLine, testing::ValuesIn(CASES),
                         [](const auto &tested) { return std::string(tested.param.name); });

TEST(LineSpeeds, give_errors_when_the_ends_differ) {
    board_run run =
        board_run::stress({"--cable", "1-4"}, {"-d1", "-b1200", "-C1", "-b115200", "-P4"});
    const Results end =
        lists_until(run, [](const Results &lines) { return lines[0].errors[0] > 0; });
    EXPECT_GT(end[0].errors[0], 0);
    run.signal(SIGINT);
    EXPECT_EQ(run.finish(), 0);
}

} // namespace
