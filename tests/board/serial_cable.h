// Two ports of the simulated board on one cable: a test process has port 1, the case itself plays
// the far end on port 2.

#pragma once

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "runtime/poll.h"
#include "runtime/settings.h"
#include "runtime/unique_fd.h"
#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "serial/start.h"
#include "tests/support/table_fixture.h"

using Bytes = std::vector<uint8_t>;

inline constexpr char OWN_PORT[] = "1";
inline constexpr char FAR_PORT[] = "2";
inline const Bytes GOOD_BLOCK(8, ')'); // as many as the FIFO hands over at once: one read

inline uint32_t shared_count(const uint32_t &word) {
    return *static_cast<const volatile uint32_t *>(&word);
}

class SerialCable : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        far_end.reset(open_async_port(FAR_PORT, O_RDWR));
        ASSERT_TRUE(far_end) << "run this on the simulated board";
    }

    void TearDown() override {
        hdlc_mode = 0;
        xfer_length = 32;
        port_speed_code = SPEED_115200;
        TableTest::TearDown();
    }

    // Of the port that a test opens from now on, and of the far end.
    void set_line_speed(uint32_t code) {
        port_speed_code = code;
        ASSERT_EQ(set_port_speed(far_end.get(), code), 0);
    }

    static TestRecord &own() {
        return record(1);
    }

    // Returns once the bytes can be read at the other end.
    void send(const Bytes &bytes) {
        ASSERT_EQ(write(far_end.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
        ASSERT_EQ(tcdrain(far_end.get()), 0);
    }

    // Sends a good block and waits until the receiver has counted it, so that the next is a block
    // of its own.
    void send_block() {
        const uint32_t good = shared_count(own().prev_read_count);
        send(GOOD_BLOCK);
        ASSERT_TRUE(wait_until([&] { return shared_count(own().prev_read_count) != good; }));
    }

    // What arrives at the far end until there are `enough` bytes and nothing more waits.
    Bytes receive(size_t enough) {
        Bytes all;
        (void)wait_until([&] {
            std::array<uint8_t, 512> part;
            while (input_within(far_end.get(), 0)) {
                const ssize_t count = read(far_end.get(), part.data(), part.size());
                all.insert(all.end(), part.begin(), part.begin() + std::max<ssize_t>(count, 0));
            }
            return all.size() >= enough;
        });
        return all;
    }

    // A whole frame: the FIFO hands it over in groups of eight and what is left at the end.
    Bytes receive_frame() {
        constexpr int32_t QUIET_MS = 20; // far more than a group takes at 4800 bit/s
        Bytes frame = receive(1);
        while (input_within(far_end.get(), QUIET_MS)) {
            const Bytes more = receive(1);
            frame.insert(frame.end(), more.begin(), more.end());
        }
        return frame;
    }

    void start_receiver() {
        ASSERT_GT(serial_loop_test(0, OWN_PORT, paren_pattern), 0);
        wait_for_silence(1);
    }

    // Silent intervals from now on: the receiver listens, and no block is in its hands.
    void wait_for_silence(int32_t intervals) {
        const int32_t before = shared_word(own().errors);
        ASSERT_TRUE(wait_until([&] { return shared_word(own().errors) >= before + intervals; }));
    }

    void hold() {
        set_shared_word(own().hold, HOLD_REQUESTED);
        ASSERT_TRUE(wait_until([&] { return shared_word(own().hold) == HOLD_ACKNOWLEDGED; }));
    }

    template <typename Claim>
    bool release_until(Claim claim) {
        set_shared_word(own().hold, HOLD_NONE);
        return wait_until(claim);
    }

    // Ends the test process as a supervisor would, so that the case can start another.
    void end_test() {
        const pid_t child = own().pid;
        ASSERT_EQ(kill(child, SIGKILL), 0);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        own() = {};
        record_count = 0;
    }

    unique_fd far_end;
};
