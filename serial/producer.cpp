// Writes blocks of test data to one serial port, with a pause of 2 ms after each. It never reads:
// the far end is a receiver, on the partner port or on another board.

#include "serial/start.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 10;
constexpr int32_t PAUSE_US = 2000;     // between two blocks, without the time to send them
constexpr int32_t GENERATE_LENGTH = 0; // the pattern uses its own length

struct producer {
    static constexpr int32_t HOLD_NAP_US = SHORT_HOLD_NAP_US;

    TestRecord &record;
    const char *name;
    PatternSource pattern;
    int port = PORT_NOT_OPEN;
    bool gave_up = false;

    void turn();
};

// Descriptor 0 stays open and unused: the next turn opens the port again.
void open_port(producer &test) {
    test.port = open_async_port(test.name, O_RDWR);
    if (test.port < 0) {
        ++test.record.errors;
        give_up(test);
    }
}

// Generates a block even if it cannot be sent: the pattern advances with each turn.
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

void producer::turn() {
    if (port <= PORT_NOT_OPEN)
        open_port(*this);
    else
        send_block(*this);
}

} // namespace

pid_t producer_test(int no_fork, const char *port, PatternSource pattern) {
    return start_test(no_fork, producer{claim_record(record_letter::PRODUCER), port, pattern});
}
