// Writes blocks of test data to one serial port as fast as the line takes them. It never reads: the
// far end is a receiver, on the partner port or on another board.

#include "serial/producer.h"

#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 10;
constexpr int32_t PAUSE_US = 2000;     // between two blocks, the time to send them not counted
constexpr int32_t GENERATE_LENGTH = 0; // of the pattern, which sends its own length

struct producer {
    const char *name;
    TestRecord &record;
    PatternSource pattern;
    int port = PORT_NOT_OPEN;
};

// Descriptor 0 is kept and not used: the next turn opens the port again.
void open_port(producer &test) {
    test.port = open_async_port(test.name, O_RDWR);
    if (test.port < 0) {
        ++test.record.errors;
        set_shared_word(test.record.pid, PID_STOP);
    }
}

// A block is generated though it cannot be sent: the pattern goes on with each turn.
void send_block(producer &test) {
    TestRecord &record = test.record;
    record.unit = port_number(test.name);
    const bool ready = output_within(test.port, POLL_MS);
    const int32_t length = generate_block(test.pattern, GENERATE_LENGTH);
    if (ready && write(test.port, tx_buffer.data(), static_cast<size_t>(length)) == length)
        ++record.write_count;
    else
        ++record.errors;
    (void)tcdrain(test.port);
    sleep_us(PAUSE_US);
}

void run_producer(producer &test) {
    TestRecord &record = test.record;
    set_shared_word(record.pid, getpid());
    while (!told_to_stop(record))
        if (is_held(record))
            hold_nap(record, SHORT_HOLD_NAP_US);
        else if (test.port <= PORT_NOT_OPEN)
            open_port(test);
        else
            send_block(test);
    mark_finished(record);
}

} // namespace

pid_t producer_test(int no_fork, const char *port, PatternSource pattern) {
    TestRecord &record = claim_record('P');
    if (no_fork != 0)
        return no_fork;

    const pid_t child = start_test();
    if (child != 0)
        return child;
    producer test = {port, record, pattern};
    run_producer(test);
    exit(TEST_EXIT_STATUS);
}
