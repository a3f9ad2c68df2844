// What the serial tests share in moving data: blocks are generated into `tx_buffer`, which is the
// reference for what arrives, and are read into `rx_buffer`.

#pragma once

#include <array>
#include <cstdint>

#include "runtime/settings.h"
#include "serial/patterns.h"

// The receive buffer of this process.
extern std::array<uint8_t, TRANSFER_BYTES> rx_buffer;

// Reads up to 512 bytes into `rx_buffer`. Returns the count, 0 or -1 as read(2).
int32_t read_block(int port);

// Clears the first `cleared_bytes` of `rx_buffer`, as many as there are (a negative count clears
// nothing), and reads when the port was `ready`. Returns the count; 0 or less: nothing came.
int32_t receive_block(int port, bool ready, int32_t cleared_bytes);

// Generates the next block into `tx_buffer`. Returns its length and leaves it in `xfer_length`.
int32_t generate_block(PatternSource pattern, int32_t length);

// Verifies `count` received bytes. Returns 0 or the 1-based position of the first bad one.
int32_t verify_block(PatternSource pattern, int32_t count);

// The received byte at a 1-based position, 1..512.
uint8_t received_byte(int32_t position);
