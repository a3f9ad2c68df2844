// The field I/O module behind SPI on the simulated board: when it is held.

#include <algorithm>
#include <gtest/gtest.h>

#include "tests/board_run.h"

namespace {

class SpiFioLoop : public testing::Test {
protected:
    void SetUp() override {
        if (sizeof(HK_EMULATOR) > 1)
            GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    }

    static board_run probed(std::vector<std::string> board, const char *steps) {
        std::vector<std::string> stress = own_program(HK_STRESS_PATH, {"-d1", "-L"});
        stress.insert(stress.begin(), steps);
        return board_run::program(std::move(board), own_program(TABLE_PROBE_PATH, stress));
    }
};

bool was_logged(const board_run &run, const std::string &text) {
    return std::ranges::any_of(run.log, [&](const log_line &line) { return line.text == text; });
}

TEST_F(SpiFioLoop, a_module_of_another_type_is_tested_once_the_hold_is_taken_off) {
    board_run run = probed({"--spi", "1"}, "is 1 27 2 set 1 27 0 wait 1 3 65 show 1 8 show 1 9");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(was_logged(run, "record 1 word 8 is 0"));
    EXPECT_TRUE(was_logged(run, "record 1 word 9 is 0"));
}

TEST_F(SpiFioLoop, a_hold_takes_effect_between_two_passes) {
    board_run run = probed({"--spi", "221"}, "wait 1 4 10 set 1 27 1 is 1 27 2 show 1 4");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(was_logged(run, "record 1 word 4 is 130")) << "two requests a step, and two before";
}

} // namespace
