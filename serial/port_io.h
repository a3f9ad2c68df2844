// What the serial tests share in moving data.

#pragma once

#include <array>
#include <cstdint>

#include "supervisor/settings.h"

// The receive buffer of this process.
extern std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

// Waits for input for at most `timeout_ms`, see poll(2). True when the port reports something to
// read, which may turn out to be an error or a hang-up.
bool input_within(int port, int32_t timeout_ms);

// Reads up to 512 bytes into `rx_buffer`. Returns the count, 0 or -1 as read(2).
int32_t read_block(int port);

// Clears the first `bytes` of `rx_buffer`, as many as there are; a negative count clears nothing.
void clear_rx_buffer(int32_t bytes);
