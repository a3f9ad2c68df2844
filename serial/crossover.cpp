// Tests the cable between two ports of the board: writes the same frame to both ports, reads it at
// the other end of the cable in each direction, and checks once that the RTS of each port drives
// the CTS and DCD of the other. With one port it is a loopback test: x and y are then the same
// port, the same descriptor and the same record.
//
// Frames that arrive on y count in x's record and the other way round: each record is for its
// port's transmitter. Stop, hold and time-outs are in y's record.

#include "serial/start.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "runtime/system_log.h"
#include "serial/port_access.h"
#include "serial/port_io.h"
#include "serial/port_settings.h"

namespace {

constexpr int32_t GENERATE_LENGTH = 100; // a frame has only bytes before this index of its table
constexpr int32_t LINE_EXTRA_CHARS = 33; // line time added to the frame's own
constexpr int32_t DELAY_MIN_US = 2000;
constexpr int32_t POLL_MAX_MS = 999;
constexpr int32_t LINES_SETTLE_US = 9000;
constexpr int32_t CLEARED_BYTES = 100; // of the receive buffer, before each read
constexpr int32_t SILENCE_ALLOWED = 3; // failed reads in a row that do not count as a fault
constexpr uint32_t GRACE_WRITES = 3;   // first frames, in which x to y may be out of step
constexpr int32_t DEADLINE_TRIES = 3;

struct crossover {
    const char *x;
    const char *y;
    TestRecord &x_record;
    TestRecord &record; // y's
    PatternSource pattern;
    int x_port = -1;
    int y_port = -1;
    bool gave_up = false;
    int32_t silence = 0; // failed reads since the last good one
    int32_t length = 0;  // of the current frame

    bool two_ports() const {
        return &x_record != &record;
    }
    void set_up();
    void turn();
    void before_nap();
    void end();
};

struct pace {
    int32_t delay_us;
    int32_t poll_ms;
    timeval deadline;
};

void give_up_port(crossover &test, const char *port) {
    log_format("Couldn't open SP%s", port);
    give_up(test);
}

void open_ports(crossover &test) {
    test.x_port = open_async_port(test.x, O_RDWR);
    if (test.x_port < 0)
        return give_up_port(test, test.x);
    test.record.unit = port_number(test.x);
    if (!test.two_ports()) {
        test.y_port = test.x_port;
        return;
    }
    test.y_port = open_async_port(test.y, O_RDWR);
    if (test.y_port < 0)
        return give_up_port(test, test.y);
    test.x_record.unit = port_number(test.x);
    test.record.unit = port_number(test.y);
    set_shared_word(test.x_record.pid, shared_word(test.record.pid));
}

// Checks that CTS and DCD of this port follow the far end's RTS, which is `expected`.
void expect_lines(int port, int expected, TestRecord &record) {
    if (get_cts(port) != expected)
        ++record.errors2;
    if (get_dcd(port) != expected)
        ++record.errors2;
}

void check_modem_lines(crossover &test) {
    // The sync port and the front panel's port have no modem lines.
    if (test.x[0] == '5' || test.x[0] == '6')
        return;
    for (const int level : {0, 1}) {
        (void)set_rts(test.x_port, level);
        (void)set_rts(test.y_port, level);
        expect_lines(test.y_port, level, test.record);
        if (test.two_ports())
            expect_lines(test.x_port, level, test.x_record);
    }
}

void add_silence(crossover &test) {
    if (test.silence > SILENCE_ALLOWED) {
        test.record.errors2 += test.silence;
        test.silence = 0;
    }
}

// Writes one new frame to both ports. Restores the reference in case the driver changes it.
void send_frame(crossover &test) {
    test.length = generate_block(test.pattern, GENERATE_LENGTH);
    const std::array<uint8_t, TRANSFER_BYTES> frame = tx_buffer;
    const auto bytes = static_cast<size_t>(test.length);

    const ssize_t sent = write(test.x_port, tx_buffer.data(), bytes);
    tx_buffer = frame;
    if (test.two_ports()) {
        (void)!write(test.y_port, tx_buffer.data(), bytes); // the other end counts a loss
        tx_buffer = frame;
    }
    if (sent != -1)
        ++test.record.write_count;
    test.x_record.write_count = test.record.write_count;
}

// Sleeps for the line time of the frame and returns how long to wait for it.
pace wait_for_line(const crossover &test) {
    pace wait = {};
    wait.delay_us =
        (test.length + LINE_EXTRA_CHARS) * 10 * US_PER_S / speed_code_to_baud(port_speed_code);
    (void)tcdrain(test.x_port);
    if (test.two_ports())
        (void)tcdrain(test.y_port);
    wait.delay_us = std::max(wait.delay_us, DELAY_MIN_US);
    sleep_us(wait.delay_us);

    wait.deadline = time_of_day();
    wait.deadline.tv_usec += wait.delay_us;
    if (wait.deadline.tv_usec > US_PER_S) {
        wait.deadline.tv_usec -= US_PER_S;
        ++wait.deadline.tv_sec;
    }
    wait.poll_ms = wait.delay_us / 1000; // 2 or more
    wait.poll_ms = wait.poll_ms <= 997 ? wait.poll_ms + 1 : POLL_MAX_MS;
    return wait;
}

bool has_passed(const timeval &deadline) {
    const timeval now = time_of_day();
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_usec >= deadline.tv_usec);
}

// An empty poll uses up a try only after the deadline.
bool input_before_deadline(int port, const pace &wait) {
    for (int32_t tries = DEADLINE_TRIES; tries > 0;) {
        if (input_within(port, wait.poll_ms))
            return true;
        if (has_passed(wait.deadline))
            --tries;
    }
    return false;
}

// No frame from the transmitter of `record` arrived.
void count_silence(crossover &test, TestRecord &record) {
    if (record.read_count != 0)
        ++test.silence;
    ++record.errors;
}

// Direction x to y.
void receive_on_y(crossover &test, const pace &wait) {
    TestRecord &sender = test.x_record;
    const bool ready = input_before_deadline(test.y_port, wait);
    if (!ready) {
        const int32_t timeouts = test.record.errors3;
        sender.errors3 = timeouts;
        test.record.errors3 = timeouts + 1;
    }
    const int32_t count = receive_block(test.y_port, ready, CLEARED_BYTES);
    if (count <= 0)
        return count_silence(test, sender);

    test.silence = 0;
    const int32_t bad = verify_block(test.pattern, count);
    if (bad > 0 && test.record.write_count > GRACE_WRITES) {
        ++sender.errors2;
        record_sample(sender, test.length, received_byte(bad));
    } else {
        ++sender.read_count;
    }
}

// Direction y to x; the frame has waited in x's queue.
void receive_on_x(crossover &test, const pace &wait) {
    TestRecord &record = test.record;
    const bool ready = input_within(test.x_port, wait.poll_ms);
    const int32_t count = receive_block(test.x_port, ready, CLEARED_BYTES);
    if (count <= 0)
        return count_silence(test, record);

    test.silence = 0;
    const int32_t bad = verify_block(test.pattern, count);
    if (bad <= 0) {
        ++record.read_count;
        return;
    }
    // The slot is x's next one, and x's index wraps when y's reaches the end: in this direction the
    // two records share the ring's index.
    ++record.errors2;
    record.hist[static_cast<size_t>(test.x_record.hist_next)] = {test.length, received_byte(bad)};
    if (++record.hist_next >= RING_SLOTS)
        test.x_record.hist_next = 0;
}

void crossover::set_up() {
    open_ports(*this);
    check_modem_lines(*this);
    sleep_us(LINES_SETTLE_US);
}

void crossover::turn() {
    add_silence(*this);
    send_frame(*this);
    const pace wait = wait_for_line(*this);
    receive_on_y(*this, wait);
    if (two_ports())
        receive_on_x(*this, wait);
}

void crossover::before_nap() {
    add_silence(*this);
    silence = 0;
}

void crossover::end() {
    record.errors2 += silence;
}

} // namespace

pid_t crossover_test(int no_fork, const char *x, const char *y, PatternSource pattern) {
    TestRecord &first = claim_record(record_letter::CROSSOVER);
    const bool two_ports = strcmp(x, y) != 0;
    TestRecord &last = two_ports ? claim_record(record_letter::CROSSOVER) : first;
    return start_test(no_fork, crossover{x, y, first, last, pattern});
}
