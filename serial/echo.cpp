// Sends back everything that arrives on one serial port, so that the unit at the far end can check
// its own data after a round trip.

#include "serial/start.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "serial/port_access.h"
#include "serial/port_io.h"

namespace {

constexpr int32_t POLL_MS = 100;
constexpr int32_t CLEARED_BYTES = 30; // of the receive buffer, before each read

struct echo {
    TestRecord &record;
    const char *name;
    int port = -1;
    bool gave_up = false;

    void set_up();
    void turn();
};

void echo::set_up() {
    port = open_async_port(name, O_RDWR);
    if (port < 0)
        give_up(*this);
    else
        record.unit = port_number(name);
}

// Counts only what it received; the far end counts what it does not get back.
void echo::turn() {
    (void)tcdrain(port);
    const bool ready = input_within(port, POLL_MS);
    const int32_t count = receive_block(port, ready, CLEARED_BYTES);
    if (count <= 0) {
        // A port that has hung up reports input immediately on every poll: keep the pace.
        if (ready && has_hung_up(port))
            sleep_us(POLL_MS * 1000);
        return;
    }
    (void)!write(port, rx_buffer.data(), static_cast<size_t>(count));
    record.read_count += static_cast<uint32_t>(count);
    record.prev_read_count = record.read_count;
    record.write_count = record.prev_read_count;
}

} // namespace

pid_t echo_test(int no_fork, const char *port, int) {
    return start_test(no_fork, echo{claim_record(record_letter::ECHO_BACK), port});
}
