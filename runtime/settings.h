// Process-wide settings: changed by the command line, inherited by every test at its fork, so that
// an option acts on the tests that follow it.

#pragma once

#include <array>
#include <cstdint>

extern int32_t led_period;  // seconds between two changes of the LED; 1..60 after the options
extern int32_t log_period;  // seconds between two results lists; 5..600 after the options
extern int32_t xfer_length; // bytes that a receiver clears of its buffer before each read;
                            // a test that generates blocks leaves their length here
extern int32_t error_flag;  // set by -e, cleared by -i; kept for old scripts, nothing reads it
extern uint8_t hdlc_mode;   // non-zero: asynchronous opens become synchronous ones

// Brings both periods into their ranges, once the whole command line has been read.
void clamp_periods();

// The board's MAC address as twelve lower-case hexadecimal digits; empty before name_board.
constexpr int MAC_BYTES = 6;
extern char mac_hex[2 * MAC_BYTES + 1];

constexpr int32_t TRANSFER_BYTES = 512; // the longest block of the serial tests

// The shared transmit buffer of the serial tests, every byte 0xAA at start.
extern std::array<uint8_t, TRANSFER_BYTES> tx_buffer;
