// Data transfer of the serial tests. They generate blocks into `tx_buffer`, the reference for
// received data, and read into `rx_buffer`.

#pragma once

#include <array>
#include <cstdint>

#include "runtime/settings.h"
#include "serial/patterns.h"

// The receive buffer of this process.
extern std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

// Reads up to 512 bytes into `rx_buffer`. Returns the result of read(2).
int32_t read_block(int port);

// Clears the first `cleared_bytes` of `rx_buffer`, clamped to 0..512, and reads if the port is
// `ready`. Returns the count; 0 or less if nothing arrived.
int32_t receive_block(int port, bool ready, int32_t cleared_bytes);

// Generates the next block into `tx_buffer`. Returns its length and stores it in `xfer_length`.
int32_t generate_block(PatternSource pattern, int32_t length);

// Verifies `count` received bytes. Returns 0 or the 1-based position of the first bad one.
int32_t verify_block(PatternSource pattern, int32_t count);

// Returns the received byte at a 1-based position, 1..512.
uint8_t received_byte(int32_t position);
