// Sends back whatever arrives on one serial port, so that the unit at the far end can check its own
// data after a round trip.

#include "serial/echo.h"

#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 100;
constexpr int32_t CLEARED_BYTES = 30; // of the receive buffer, before each read

struct echo {
    const char *name;
    TestRecord &record;
    int port = -1;
};

void open_port(echo &test) {
    test.port = open_async_port(test.name, O_RDWR);
    if (test.port < 0)
        set_shared_word(test.record.pid, PID_STOP);
    else
        test.record.unit = port_number(test.name);
}

// The far end counts what it does not get back; here only what came is counted.
void echo_block(echo &test) {
    TestRecord &record = test.record;
    (void)tcdrain(test.port);
    const bool ready = input_within(test.port, POLL_MS);
    const int32_t count = receive_block(test.port, ready, CLEARED_BYTES);
    if (count <= 0) {
        // A port that has hung up reports input at once and for ever: keep the pace of the polls.
        if (ready)
            sleep_us(POLL_MS * 1000);
        return;
    }
    (void)!write(test.port, rx_buffer.data(), static_cast<size_t>(count));
    record.read_count += static_cast<uint32_t>(count);
    record.prev_read_count = record.read_count;
    record.write_count = record.prev_read_count;
}

void run_echo(echo &test) {
    TestRecord &record = test.record;
    set_shared_word(record.pid, getpid());
    open_port(test);
    while (!told_to_stop(record))
        if (is_held(record))
            hold_nap(record, HOLD_NAP_US);
        else
            echo_block(test);
    mark_finished(record);
}

} // namespace

pid_t echo_test(int no_fork, const char *port, int) {
    TestRecord &record = claim_record('E');
    if (no_fork != 0)
        return no_fork;

    const pid_t child = start_test();
    if (child != 0)
        return child;
    echo test = {port, record};
    run_echo(test);
    exit(TEST_EXIT_STATUS);
}
