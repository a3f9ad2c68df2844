// The exchange with a field I/O module, over a socket pair that keeps frames apart as the sync
// port does. What the module answers is put there before it is asked.
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <numeric>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fio/fio_exchange.h"
#include "fio/fio_module.h"
#include "runtime/unique_fd.h"

namespace {

constexpr uint8_t STATUS_MARKER = '1' + 0x80;

using frame_bytes = std::vector<uint8_t>;

class Exchange : public testing::Test {
protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
        port.reset(ends[0]);
        module.reset(ends[1]);
    }

    void module_sends(const frame_bytes &frame) {
        ASSERT_EQ(write(module.get(), frame.data(), frame.size()),
                  static_cast<ssize_t>(frame.size()));
    }

    frame_bytes module_receives() {
        frame_bytes frame(64);
        const ssize_t count = read(module.get(), frame.data(), frame.size());
        frame.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return frame;
    }

    // Asks for the status; what is written to standard error meanwhile is kept in `reported`.
    int ask_status(uint16_t expected = STATUS_REPLY_LENGTH) {
        build_status(request, FIRST_MODULE);
        reply.fill(0x55);
        testing::internal::CaptureStderr();
        const int result = fio_exchange(std::span(request).first(STATUS_LENGTH), reply, expected,
                                        port.get(), record);
        reported = testing::internal::GetCapturedStderr();
        return result;
    }

    unique_fd port;
    unique_fd module;
    TestRecord record = {};
    fio_frame request = {};
    fio_frame reply = {};
    std::string reported;
};

// `count` bytes, the marker at position `at`, the others showing their position.
frame_bytes frame_with_marker(size_t count, size_t at) {
    frame_bytes frame(count);
    std::iota(frame.begin(), frame.end(), uint8_t{1});
    std::ranges::replace(frame, STATUS_MARKER, uint8_t{0});
    frame[at] = STATUS_MARKER;
    return frame;
}

TEST_F(Exchange, a_reply_is_taken_from_its_marker_and_reported_where_place_or_length_are_odd) {
    const struct {
        size_t count;
        size_t at;
        const char *text;
        int32_t errors;
    } cases[] = {
        {10, 2, "", 0},
        {12, 2, "[12 10]", 0},
        {3, 2, "[3 10]", 0}, // zeros follow it, not what the longer reply before it left
        {13, 5, "<13 10  3>", 1},
        {8, 0, "<8 10  -2>", 1},
        {9, 1, "<9 10  -1>", 1},
        {1000, 999, "<1000 10  997>", 1},
        {1001, 998, "<1000 10  996>", 1}, // one read takes 1000 bytes at most
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        record = {};
        const frame_bytes answer = frame_with_marker(c.count, c.at);
        module_sends(answer);
        EXPECT_EQ(ask_status(), 0);
        EXPECT_EQ(module_receives(), (frame_bytes{20, 0x83, '1', 0xFF}));
        EXPECT_EQ(reported, c.text);
        EXPECT_EQ(record.errors, c.errors);
        for (size_t i = 0; i < STATUS_REPLY_LENGTH; ++i) {
            const size_t from = c.at + i - COMMAND_AT; // wraps in front of the frame
            EXPECT_EQ(reply[i], from < std::min(c.count, size_t{1000}) ? answer[from] : 0) << i;
        }
        EXPECT_EQ(reply[STATUS_REPLY_LENGTH], 0x55) << "nothing after the expected length";
    }
}

// The frames have 24 ms together. A try in which a busy machine has used them up is passed over.
TEST_F(Exchange, frames_without_the_marker_are_reported_and_the_next_one_is_taken) {
    using std::chrono::steady_clock;
    bool is_in_time = false;
    while (!is_in_time) {
        while (!module_receives().empty()) {
        }
        while (recv(port.get(), reply.data(), reply.size(), 0) > 0) {
        }
        record = {};
        module_sends({20});
        module_sends({20, 0x83});
        module_sends({20, 0x83, '<' + 0x80, 221});
        module_sends(frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT));
        const auto start = steady_clock::now();
        const int result = ask_status();
        is_in_time = steady_clock::now() - start < std::chrono::milliseconds(20);
        EXPECT_EQ(is_in_time ? result : 0, 0);
    }
    EXPECT_EQ(reported, "<1 10 <2 10 <4 10 ");
    EXPECT_EQ(record.errors, 0);
}

TEST_F(Exchange, a_short_reply_is_followed_by_zeros_up_to_20_bytes_and_then_by_the_one_before) {
    constexpr uint16_t EXPECTED = 24;
    const frame_bytes longer = frame_with_marker(EXPECTED, COMMAND_AT);
    module_sends(longer);
    ASSERT_EQ(ask_status(EXPECTED), 0);
    module_sends(frame_with_marker(4, COMMAND_AT));
    EXPECT_EQ(ask_status(EXPECTED), 0);
    EXPECT_EQ(std::count(reply.begin() + 4, reply.begin() + 20, 0), 16);
    EXPECT_TRUE(std::equal(longer.begin() + 20, longer.end(), reply.begin() + 20));
}

TEST_F(Exchange, silence_a_hangup_and_a_lost_request_fail_and_leave_the_reply_buffer_alone) {
    EXPECT_EQ(ask_status(), 1);
    ASSERT_EQ(shutdown(module.get(), SHUT_WR), 0);
    EXPECT_EQ(ask_status(), 1);
    EXPECT_EQ(reported, "");

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    port.reset(ends[0]); // cannot be written to, though a reply waits
    module.reset(ends[1]);
    module_sends(frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT));
    EXPECT_EQ(ask_status(), 1);
    EXPECT_EQ(std::ranges::count(reply, 0x55), std::ssize(reply));
}

TEST_F(Exchange, a_silent_module_is_asked_three_times_and_forgotten) {
    module_profile profile = profile_of(221);
    reply.fill(221); // of an earlier exchange
    EXPECT_EQ(fio_identify(port.get(), record, FIRST_MODULE, reply, request, profile), 1);
    EXPECT_EQ(profile.map, nullptr);
    EXPECT_EQ(record.errors3, 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(module_receives(), (frame_bytes{20, 0x83, '<'}));
    EXPECT_EQ(module_receives(), frame_bytes{});
    EXPECT_EQ(fio_map_pass(port.get(), record, FIRST_MODULE, reply, request, profile_of(221)), 0);
}

TEST(Wait, it_ends_24_ms_after_its_start_after_a_slow_poll_or_when_the_clock_goes_back) {
    const struct {
        int64_t before_us; // the wait starts at 0
        int64_t after_us;
        int64_t figure_us;
        int64_t start_us; // then
    } cases[] = {
        {0, 24000, 24000, 0}, {18000, 24000, 24000, 0},
        {18001, 24001, 0, 0}, {500, 24501, 0, 24501},
        {3000, 5, 5, 0},      {990000, 1015000, 0, 1015000},
        {100, -2, 0, 0},      {5, 10000000000, 0, 10000000000},
    };
    const auto at = [](int64_t us) {
        const int64_t whole = us + 1000000990000; // near the end of a second
        return timeval{static_cast<time_t>(whole / 1000000),
                       static_cast<suseconds_t>(whole % 1000000)};
    };
    for (const auto &wait : cases) {
        timeval start = at(0);
        EXPECT_EQ(wait_figure_us(start, at(wait.before_us), at(wait.after_us)), wait.figure_us)
            << wait.before_us << " to " << wait.after_us;
        EXPECT_EQ(start.tv_sec, at(wait.start_us).tv_sec) << wait.after_us;
        EXPECT_EQ(start.tv_usec, at(wait.start_us).tv_usec) << wait.after_us;
    }
}

} // namespace
