// Listens on one serial port and checks every block that arrives. It never transmits: the far end
// is a producer, on the partner port or on another board.

#include "serial/start.h"

#include <fcntl.h>

#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 40;      // two of these in a row are one silent interval
constexpr int32_t DRAIN_POLL_MS = 5; // a gap this long ends the stale input

struct receiver {
    static constexpr int32_t HOLD_NAP_US = SHORT_HOLD_NAP_US;

    TestRecord &record;
    const char *name;
    PatternSource pattern;
    int port = PORT_NOT_OPEN;
    bool was_held = false; // input from the hold is stale
    bool gave_up = false;
    int32_t silence = 0; // failed reads since the last good one

    void turn();
    void before_nap();
};

// If the far end never pauses, this never returns: start the receiver first. A port that has hung
// up is never silent, so the hang-up ends the drain.
void drain_input(int port) {
    while (input_within(port, DRAIN_POLL_MS))
        if (read_block(port) <= 0 && has_hung_up(port))
            return;
}

void open_port(receiver &test) {
    test.port = open_async_port(test.name, O_RDWR);
    if (test.port <= PORT_NOT_OPEN) {
        ++test.record.errors3;
        give_up(test);
        return;
    }
    drain_input(test.port);
    test.record.unit = port_number(test.name);
}

void count_block(receiver &test, int32_t count) {
    TestRecord &record = test.record;
    test.silence = 0;
    ++record.read_count;
    const int32_t bad = verify_block(test.pattern, count);
    if (bad == 0) {
        ++record.prev_read_count;
        return;
    }
    ++record.errors2;
    record_sample(record, bad - 1, received_byte(bad));
}

// Before the first block silence counts only in `errors`: the far end may not have started yet.
void count_silence(receiver &test) {
    if (test.record.read_count != 0)
        ++test.silence;
    ++test.record.errors;
}

// Only a hold ends this loop: to stop this test, write PID_STOP and also hold the record.
void receive_until_held(receiver &test) {
    if (test.was_held)
        drain_input(test.port);
    test.was_held = false;
    for (;;) {
        const bool ready = input_within(test.port, POLL_MS) || input_within(test.port, POLL_MS);
        if (is_held(test.record))
            return;
        const int32_t count = receive_block(test.port, ready, xfer_length);
        if (count > 0) {
            count_block(test, count);
            continue;
        }
        count_silence(test);
        // A port that has hung up reports input immediately on every poll: keep the pace.
        if (ready && has_hung_up(test.port))
            sleep_us(2 * POLL_MS * 1000);
    }
}

void receiver::turn() {
    if (port <= PORT_NOT_OPEN)
        open_port(*this);
    else
        receive_until_held(*this);
}

void receiver::before_nap() {
    record.errors2 += silence;
    silence = 0;
    was_held = true;
}

} // namespace

pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern) {
    return start_test(no_fork, receiver{claim_record(record_letter::RECEIVER), port, pattern});
}
