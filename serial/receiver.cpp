// Listens on one serial port and checks every block that arrives. It never transmits: the far end
// is a producer, on the partner port or on another board.

#include "serial/receiver.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 40;      // two of these in a row are one silent interval
constexpr int32_t DRAIN_POLL_MS = 5; // a gap this long ends the stale input

struct receiver {
    const char *name;
    TestRecord &record;
    PatternSource pattern;
    int port = PORT_NOT_OPEN;
    bool was_held = false; // what came meanwhile is stale
    int32_t silence = 0;   // failed reads since the last good one
};

// A far end that never pauses is never stale enough: start the receiver first. A failed read ends
// it too, since a port that has hung up would never fall silent.
void drain_input(int port) {
    while (input_within(port, DRAIN_POLL_MS) && read_block(port) > 0)
        ;
}

void acknowledge_hold(receiver &test) {
    test.record.errors2 += test.silence;
    test.silence = 0;
    test.was_held = true;
    hold_nap(test.record, SHORT_HOLD_NAP_US);
}

void open_port(receiver &test) {
    test.port = open_async_port(test.name, O_RDWR);
    if (test.port <= PORT_NOT_OPEN) {
        ++test.record.errors3;
        set_shared_word(test.record.pid, PID_STOP);
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

// Before the first block silence is only that: the far end may not have started yet.
void count_silence(receiver &test) {
    if (test.record.read_count != 0)
        ++test.silence;
    ++test.record.errors;
}

// Only a hold ends this: whoever writes PID_STOP into the record must hold it too.
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
        // A port that has hung up reports input at once and for ever: keep the pace of the polls.
        if (ready)
            sleep_us(2 * POLL_MS * 1000);
    }
}

void run_receiver(receiver &test) {
    TestRecord &record = test.record;
    set_shared_word(record.pid, getpid());
    while (!told_to_stop(record))
        if (is_held(record))
            acknowledge_hold(test);
        else if (test.port <= PORT_NOT_OPEN)
            open_port(test);
        else
            receive_until_held(test);
    mark_finished(record);
}

} // namespace

pid_t serial_loop_test(int no_fork, const char *port, PatternSource pattern) {
    TestRecord &record = claim_record('C');
    if (no_fork != 0)
        return no_fork;

    const pid_t child = start_test();
    if (child != 0)
        return child;
    receiver test = {port, record, pattern};
    run_receiver(test);
    exit(TEST_EXIT_STATUS);
}
