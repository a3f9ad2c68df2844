// Calls on ports that the program answers itself return what the board would have answered.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

constexpr bool IS_NATIVE = sizeof(HK_EMULATOR) == 1;

std::string output_of(const std::vector<std::string> &board_options,
                      const std::vector<std::string> &arguments) {
    std::vector<std::string> options = {"--clock", "virtual", "--strict", "--cable", "1-2"};
    options.insert(options.end(), board_options.begin(), board_options.end());
    board_run run = board_run::program(options, own_program(QUICK_CALLER_PATH, arguments));
    EXPECT_EQ(run.finish(), 0) << run.errors;
    return run.output;
}

// With a file of calls the board answers each one.
struct QuickCalls : testing::Test {
    QuickCalls() : calls("/tmp/hk_quick_" + std::to_string(getpid())) {}
    ~QuickCalls() override {
        unlink(calls.c_str());
    }
    const std::string calls;
};

// POLLIN is 1, POLLOUT 4. 115200 bit/s are 115 bytes in ten milliseconds.
TEST_F(QuickCalls, return_what_the_board_returns) {
    const char *const expected = "events of both kinds: 5\n"
                                 "two bytes: \"ab\"\n"
                                 "the rest: \"cdef\"\n"
                                 "events then: 0\n"
                                 "read of nothing: EAGAIN\n"
                                 "write: 115\n"
                                 "tcdrain: 0\n"
                                 "milliseconds: 9\n"
                                 "tcdrain again: 0\n"
                                 "read: 112\n"
                                 "write of too much: 4095\n"
                                 "write to a full port: EAGAIN\n"
                                 "events then: 0\n"
                                 "poll nowhere: EFAULT\n"
                                 "write from nowhere: EFAULT\n"
                                 "read to a mapping: \"ghi\"\n"
                                 "read to nowhere: EFAULT\n"
                                 "read to a protected page: EFAULT\n"
                                 "first: \"mn\"\n"
                                 "by the copy: \"op\"\n"
                                 "last: \"qr\"\n"
                                 "first: \"mn\"\n"
                                 "by the copy: \"op\"\n"
                                 "last: \"qr\"\n"
                                 "by the closed copy: EBADF\n"
                                 "in a child: \"st\"\n"
                                 "in its parent: \"u\"\n"
                                 "write: 1\n"
                                 "write after close: EBADF\n"
                                 "read: 1\n"
                                 "read after dup2: 0\n"
                                 "write after vfork: 2\n"
                                 "what it has sent: 2\n"
                                 "what its child has sent: 6\n"
                                 "with ONLCR: 3\n"
                                 "with ICANON: 2\n"
                                 "events of three bytes of five: 0\n"
                                 "three bytes of five: 2\n";
    EXPECT_EQ(output_of({}, {}), expected);
    EXPECT_EQ(output_of({"--calls", calls}, {}), expected);
}

// A call that the board answers makes the process wait for it.
TEST_F(QuickCalls, need_no_switch_to_the_board) {
    if (!IS_NATIVE)
        GTEST_SKIP() << "the emulator makes the calls";
    EXPECT_EQ(output_of({}, {"switches"}), "0\n");
    EXPECT_EQ(output_of({"--calls", calls}, {"switches"}), "20\n");
}

} // namespace
