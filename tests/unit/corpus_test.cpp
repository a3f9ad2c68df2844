// Replays the inputs that the fuzzers have found worth keeping, with every compiler.
#include <gtest/gtest.h>

#include "tests/fuzz/targets.h"

namespace {

TEST(Corpus, every_reply_from_the_sync_port_is_taken_or_refused) {
    EXPECT_GT(replay("fio_reply", fuzz_fio_reply), 0);
}

TEST(Corpus, every_reply_from_spi_is_taken_or_refused) {
    EXPECT_GT(replay("spi_reply", fuzz_spi_reply), 0);
}

} // namespace
