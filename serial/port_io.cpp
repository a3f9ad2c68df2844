#include "serial/port_io.h"

#include <algorithm>
#include <unistd.h>

std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

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
