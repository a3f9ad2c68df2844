#include "serial/port_io.h"

#include <algorithm>
#include <poll.h>
#include <unistd.h>

std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

namespace {

bool event_within(int port, short events, int32_t timeout_ms) {
    pollfd waiting = {port, events, 0};
    return poll(&waiting, 1, timeout_ms) > 0;
}

} // namespace

bool input_within(int port, int32_t timeout_ms) {
    return event_within(port, POLLIN | POLLPRI, timeout_ms);
}

bool output_within(int port, int32_t timeout_ms) {
    return event_within(port, POLLOUT, timeout_ms);
}

int32_t read_block(int port) {
    return static_cast<int32_t>(read(port, rx_buffer.data(), rx_buffer.size()));
}

int32_t receive_block(int port, bool ready, int32_t cleared_bytes) {
    std::fill_n(rx_buffer.begin(), std::clamp(cleared_bytes, 0, TRANSFER_BYTES), uint8_t{0});
    return ready ? read_block(port) : 0;
}

int32_t generate_block(PatternSource pattern, int32_t length) {
    xfer_length = pattern(nullptr, tx_buffer.data(), length);
    return xfer_length;
}

int32_t verify_block(PatternSource pattern, int32_t count) {
    return pattern(rx_buffer.data(), tx_buffer.data(), count);
}

uint8_t received_byte(int32_t position) {
    return rx_buffer[static_cast<size_t>(position - 1)];
}
