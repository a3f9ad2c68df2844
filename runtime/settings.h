// Process-wide settings. The command line changes them and every test inherits them at its fork, so
// an option applies to the tests that follow it.

#pragma once

#include <array>
#include <cstdint>

extern int32_t led_period;  // seconds between two changes of the LED; 1..60 after the options
extern int32_t log_period;  // seconds between two results lists; 5..600 after the options
extern int32_t xfer_length; // bytes that a receiver clears before each read; the other serial
                            // tests overwrite it
extern int32_t error_flag;  // set by -e, cleared by -i; nothing reads it
extern uint8_t hdlc_mode;   // non-zero: asynchronous opens become synchronous ones

// Clamps both periods to their ranges, after the whole command line is read.
void clamp_periods();

// The board's MAC address as twelve lower-case hexadecimal digits; empty before name_board.
constexpr int MAC_BYTES = 6;
extern char mac_hex[2 * MAC_BYTES + 1];

constexpr int32_t TRANSFER_BYTES = 512; // the longest block of the serial tests

// The shared transmit buffer of the serial tests, which the supervisor fills with 0xAA at start-up.
extern std::array<uint8_t, TRANSFER_BYTES> tx_buffer;
