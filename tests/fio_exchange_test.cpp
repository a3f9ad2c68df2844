// The exchange with a field I/O module, over a socket pair that keeps frames apart as the sync
// port does. What the module answers is put there before it is asked.
#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fio/fio_exchange.h"
#include "fio/fio_module.h"
#include "supervisor/unique_fd.h"

namespace {

constexpr uint8_t STATUS_MARKER = '1' + 0x80;
constexpr uint8_t IDENTIFY_MARKER = '<' + 0x80;

using bytes = std::vector<uint8_t>;

class Exchange : public testing::Test {
protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
        port.reset(ends[0]);
        module.reset(ends[1]);
    }

    void module_sends(const bytes &frame) {
        ASSERT_EQ(write(module.get(), frame.data(), frame.size()),
                  static_cast<ssize_t>(frame.size()));
    }

    bytes module_receives() {
        bytes frame(64);
        const ssize_t count = read(module.get(), frame.data(), frame.size());
        frame.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return frame;
    }

    // Asks for the status; what is written to standard error meanwhile is kept in `told`.
    int ask_status(uint16_t expected = STATUS_REPLY_LENGTH) {
        build_status(request, FIRST_MODULE);
        reply.fill(0x55);
        testing::internal::CaptureStderr();
        const int result = fio_exchange(std::span(request).first(STATUS_LENGTH), reply, expected,
                                        port.get(), record);
        told = testing::internal::GetCapturedStderr();
        return result;
    }

    unique_fd port;
    unique_fd module;
    TestRecord record = {};
    fio_frame request = {};
    fio_frame reply = {};
    std::string told;
};

// `count` bytes, the marker at position `at`, the others telling their position.
bytes frame_with_marker(size_t count, size_t at) {
    bytes frame(count);
    std::iota(frame.begin(), frame.end(), uint8_t{1});
    std::ranges::replace(frame, STATUS_MARKER, uint8_t{0});
    frame[at] = STATUS_MARKER;
    return frame;
}

TEST_F(Exchange, the_module_gets_the_request_whole_and_its_reply_is_taken_as_it_is) {
    const bytes answer = frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT);
    module_sends(answer);
    EXPECT_EQ(ask_status(), 0);
    EXPECT_EQ(module_receives(), (bytes{20, 0x83, '1', 0xFF}));
    EXPECT_TRUE(std::ranges::equal(answer, std::span(reply).first(STATUS_REPLY_LENGTH)));
    EXPECT_EQ(told, "");
    EXPECT_EQ(record.errors, 0);
}

TEST_F(Exchange, a_reply_of_the_wrong_length_in_place_is_taken_and_told) {
    for (const size_t count : {size_t{12}, size_t{3}}) {
        const bytes answer = frame_with_marker(count, COMMAND_AT);
        module_sends(answer);
        EXPECT_EQ(ask_status(), 0);
        EXPECT_EQ(told, count == 12 ? "[12 10]" : "[3 10]");
        EXPECT_TRUE(std::equal(answer.begin(), answer.begin() + 3, reply.begin()));
        if (count == 3) {
            EXPECT_EQ(std::count(reply.begin() + 3, reply.begin() + STATUS_REPLY_LENGTH, 0), 7)
                << "not what the longer reply before it left";
        }
        EXPECT_EQ(reply[STATUS_REPLY_LENGTH], 0x55) << "nothing behind the expected length";
        EXPECT_EQ(record.errors, 0);
    }
}

TEST_F(Exchange, a_reply_elsewhere_is_realigned_to_its_marker_counted_and_told) {
    const struct {
        size_t count;
        size_t at;
        const char *text;
    } cases[] = {
        {13, 5, "<13 10  3>"},
        {8, 0, "<8 10  -2>"},
        {9, 1, "<9 10  -1>"},
        {1000, 999, "<1000 10  997>"},
        // One read takes 1000 bytes at most.
        {1001, 998, "<1000 10  996>"},
    };
    for (const auto &odd : cases) {
        record = {};
        const bytes answer = frame_with_marker(odd.count, odd.at);
        module_sends(answer);
        EXPECT_EQ(ask_status(), 0);
        EXPECT_EQ(told, odd.text);
        EXPECT_EQ(record.errors, 1);
        EXPECT_EQ(reply[COMMAND_AT], STATUS_MARKER);
        if (odd.at + 1 < odd.count) {
            EXPECT_EQ(reply[DATA_AT], answer[odd.at + 1]) << odd.text;
        }
    }
}

TEST_F(Exchange, a_marker_in_place_wins_over_one_before_it) {
    bytes answer = frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT);
    answer[0] = STATUS_MARKER;
    module_sends(answer);
    EXPECT_EQ(ask_status(), 0);
    EXPECT_EQ(told, "");
    EXPECT_TRUE(std::ranges::equal(answer, std::span(reply).first(STATUS_REPLY_LENGTH)));
}

TEST_F(Exchange, a_frame_without_the_marker_is_told_and_the_next_one_taken) {
    module_sends({20, 0x83, '<' + 0x80, 221});
    module_sends(frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT));
    EXPECT_EQ(ask_status(), 0);
    EXPECT_EQ(told, "<4 10 ");
    EXPECT_EQ(record.errors, 0);
}

TEST_F(Exchange, a_frame_too_short_for_a_marker_is_no_reply_though_an_earlier_one_had_it_there) {
    module_sends(frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT));
    ASSERT_EQ(ask_status(), 0);
    module_sends({20, 0x83});
    EXPECT_EQ(ask_status(), 1);
    EXPECT_EQ(told, "<2 10 ");
}

TEST_F(Exchange, a_short_reply_is_followed_by_zeros_up_to_20_bytes_and_then_by_the_one_before) {
    constexpr uint16_t EXPECTED = 24;
    const bytes longer = frame_with_marker(EXPECTED, COMMAND_AT);
    module_sends(longer);
    ASSERT_EQ(ask_status(EXPECTED), 0);
    module_sends(frame_with_marker(4, COMMAND_AT));
    EXPECT_EQ(ask_status(EXPECTED), 0);
    EXPECT_TRUE(
        std::all_of(reply.begin() + 4, reply.begin() + 20, [](uint8_t b) { return b == 0; }));
    EXPECT_TRUE(std::equal(longer.begin() + 20, longer.end(), reply.begin() + 20));
}

TEST_F(Exchange, a_port_that_has_hung_up_is_silent) {
    ASSERT_EQ(shutdown(module.get(), SHUT_WR), 0);
    EXPECT_EQ(ask_status(), 1);
    EXPECT_EQ(told, "");
}

TEST_F(Exchange, silence_fails_and_leaves_the_reply_buffer_alone) {
    EXPECT_EQ(ask_status(), 1);
    EXPECT_EQ(told, "");
    EXPECT_TRUE(std::ranges::all_of(reply, [](uint8_t byte) { return byte == 0x55; }));
}

TEST_F(Exchange, a_request_that_cannot_be_written_fails_though_a_reply_waits) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    port.reset(ends[0]); // cannot be written to
    module.reset(ends[1]);
    module_sends(frame_with_marker(STATUS_REPLY_LENGTH, COMMAND_AT));
    EXPECT_EQ(ask_status(), 1);
}

TEST_F(Exchange, a_module_is_identified_by_the_type_in_its_reply) {
    const struct {
        uint8_t type;
        uint8_t set_length;
        uint8_t read_reply_length;
        uint8_t inputs;
        const loop_step *map;
    } cases[] = {
        {1, 19, 15, 8, IDENTITY_MAP.data()},
        {2, 29, 22, 15, MAP_A.data()},
        {219, 35, 24, 14, MAP_A.data()},
        {220, 35, 24, 14, MAP_C.data()},
        {221, 35, 24, 14, IDENTITY_MAP.data()},
        {3, 0, 0, 0, nullptr},
        {0, 0, 0, 0, nullptr},
    };
    for (const auto &wanted : cases) {
        module_profile profile = {1, 1, 1, MAP_S.data()};
        module_sends({16, 0x83, IDENTIFY_MARKER, wanted.type});
        EXPECT_EQ(fio_identify(port.get(), record, SECOND_MODULE, reply, request, profile),
                  wanted.map == nullptr ? 1 : 0);
        EXPECT_EQ(module_receives(), (bytes{16, 0x83, '<'}));
        EXPECT_EQ(profile.set_length, wanted.set_length) << int{wanted.type};
        EXPECT_EQ(profile.read_reply_length, wanted.read_reply_length) << int{wanted.type};
        EXPECT_EQ(profile.inputs, wanted.inputs) << int{wanted.type};
        EXPECT_EQ(profile.map, wanted.map) << int{wanted.type};
    }
    EXPECT_EQ(record.errors3, 0);
}

TEST_F(Exchange, a_silent_module_is_asked_three_times_and_forgotten) {
    module_profile profile = profile_of(221);
    EXPECT_EQ(fio_identify(port.get(), record, FIRST_MODULE, reply, request, profile), 1);
    EXPECT_EQ(profile.map, nullptr);
    EXPECT_EQ(record.errors3, 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(module_receives(), (bytes{20, 0x83, '<'}));
    EXPECT_EQ(module_receives(), bytes{});
    EXPECT_EQ(fio_map_pass(port.get(), record, FIRST_MODULE, reply, request, profile_of(221)), 0);
    EXPECT_EQ(record.errors3, 4);
}

TEST(Wait, it_ends_24_ms_after_its_start_after_a_slow_poll_or_when_the_clock_goes_back) {
    const struct {
        int64_t before_us; // the wait starts at 0
        int64_t after_us;
        int64_t figure_us;
        int64_t start_us; // then
    } cases[] = {
        {0, 6000, 6000, 0},
        {18000, 24000, 24000, 0},
        {18001, 24001, 0, 0},
        {0, 24000, 24000, 0},
        {500, 24501, 0, 24501},
        {3000, 5, 5, 0},
        {990000, 1015000, 0, 1015000},
        {100, -2, 0, 0},
        {5, 10000000000, 0, 10000000000},
    };
    const auto at = [](int64_t us) {
        const int64_t whole = us + 1000000000000; // well above 0, so that earlier times exist
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
