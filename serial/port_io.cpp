#include "serial/port_io.h"

#include <algorithm>
#include <poll.h>
#include <unistd.h>

std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

bool input_within(int port, int32_t timeout_ms) {
    pollfd waiting = {};
    waiting.fd = port;
    waiting.events = POLLIN | POLLPRI;
    return poll(&waiting, 1, timeout_ms) > 0;
}

int32_t read_block(int port) {
    return static_cast<int32_t>(read(port, rx_buffer.data(), rx_buffer.size()));
}

void clear_rx_buffer(int32_t bytes) {
    std::fill_n(rx_buffer.begin(), std::clamp(bytes, 0, TRANSFER_BYTES), uint8_t{0});
}
