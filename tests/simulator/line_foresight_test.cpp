// What a port foresees of calls is what the calls then return.

#include <array>
#include <gtest/gtest.h>
#include <random>

#include "tests/simulator/line_bench.h"

using namespace simulator::line;

namespace {

constexpr int TURNS = 20'000;
constexpr uint32_t BPS = 115200;

struct foresight_bench : line_bench {
    using line_bench::line_bench;

    std::array<uint8_t, 512> input{};

    at_once foresee(port &asked) {
        return asked.foresee(now, input);
    }
    std::string foreseen_input(const at_once &now_seen) {
        return {input.begin(), input.begin() + static_cast<ptrdiff_t>(now_seen.readable)};
    }
    bool waits_for_drain(port &asked) {
        request_call call{.number = TCSBRK, .value = 1};
        return asked.request(now, call).is_waiting;
    }
    // A read that may wait, of any number of bytes.
    outcome read_as_opened(port &asked, std::string &text) {
        read_call call{.bytes = {reinterpret_cast<uint8_t *>(text.data()), text.size()},
                       .nonblocking = false};
        return asked.read(now, call);
    }
};

// One random call on a port, or a pause. Counts what was foreseen.
void take_turn(foresight_bench &bench, port &asked, std::mt19937 &random,
               std::array<int, 4> &seen) {
    const at_once now = bench.foresee(asked);
    const std::string coming = bench.foreseen_input(now);
    ASSERT_EQ(asked.poll(bench.now), now.events);
    ASSERT_NE(bench.waits_for_drain(asked), now.is_drained);
    seen[0] += now.is_drained ? 1 : 0;
    switch (random() % 4) {
    case 0: {
        std::string text(1 + random() % 600, '\0');
        const outcome got = bench.read_as_opened(asked, text);
        if (now.readable == 0)
            return;
        seen[1]++;
        ASSERT_FALSE(got.is_waiting);
        text.resize(static_cast<size_t>(got.result));
        ASSERT_EQ(text, coming.substr(0, text.size()));
        return;
    }
    case 1: {
        const std::string text(1 + random() % 90, static_cast<char>('a' + random() % 26));
        const int64_t done = bench.write(asked, text);
        if (text.size() > now.room)
            return;
        seen[2]++;
        ASSERT_EQ(done, static_cast<int64_t>(text.size()));
        return;
    }
    default:
        bench.run(static_cast<int64_t>(random() % 20) * SECOND / 1000);
        seen[3]++;
    }
}

void compare(foresight_bench &bench) {
    std::mt19937 random(1); // the same turns each time
    std::array<int, 4> seen{};
    for (int i = 0; i < TURNS && !testing::Test::HasFatalFailure(); i++)
        take_turn(bench, random() % 2 == 0 ? bench.one : bench.two, random, seen);
    for (const int each : seen)
        EXPECT_GT(each, TURNS / 100);
}

TEST(LineForesight, is_true_of_characters) {
    foresight_bench bench;
    bench.open_raw(BPS);
    compare(bench);
}

TEST(LineForesight, is_true_of_a_least_number_of_characters) {
    foresight_bench bench;
    bench.open_raw(BPS);
    for (port *each : {&bench.one, &bench.two})
        (void)bench.set(*each, [](tty_settings &wanted) { wanted.c_cc[VMIN] = 100; });
    compare(bench);
}

TEST(LineForesight, is_true_of_frames) {
    foresight_bench bench({.is_synchronous = true});
    bench.open_raw(BPS);
    for (port *each : {&bench.one, &bench.two}) {
        std::array<uint8_t, sizeof SYNC_MODE> mode;
        std::ranges::copy(SYNC_MODE, mode.begin());
        request_call call{.number = SYNC_MODE_REQUEST, .argument = mode};
        ASSERT_EQ(each->request(bench.now, call).result, 0);
    }
    compare(bench);
}

// Such calls have other results, or give the other end a sign to go on.
TEST(LineForesight, has_nothing_of_a_port_that_does_more_than_pass_characters_on) {
    using change = void (*)(tty_settings &);
    for (const change each : {change([](tty_settings &wanted) { wanted.c_lflag |= ICANON; }),
                              change([](tty_settings &wanted) { wanted.c_oflag |= OPOST; }),
                              change([](tty_settings &wanted) { wanted.c_cflag |= CRTSCTS; }),
                              change([](tty_settings &wanted) { wanted.c_iflag |= IXOFF; })}) {
        foresight_bench bench;
        bench.open_raw(BPS);
        EXPECT_TRUE(bench.foresee(bench.one).is_drained);
        (void)bench.set(bench.one, each);
        const at_once now = bench.foresee(bench.one);
        EXPECT_TRUE(now.events == 0 && now.room == 0 && now.readable == 0 && !now.is_drained);
    }
    foresight_bench bench;
    bench.open_raw(BPS);
    bench.one.hang_up(bench.now, false);
    EXPECT_EQ(bench.foresee(bench.one).room, 0U);
}

} // namespace
