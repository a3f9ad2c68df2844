// Replays the command lines that the fuzzer has found worth keeping, with every compiler.
#include <gtest/gtest.h>

#include "tests/fuzz/replay.h"
#include "tests/fuzz/targets.h"

TEST(Corpus, every_command_line_stays_within_the_table) {
    EXPECT_GT(replay("option_walk", fuzz_option_walk), 0);
}
