// Process-wide settings. The command line changes them and every test inherits them at its fork, so
// an option applies to the tests that follow it.

#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

inline int32_t led_period = 2;   // seconds between two changes of the LED; 1..60 after the options
inline int32_t log_period = 120; // seconds between two results lists; 5..600 after the options
inline int32_t xfer_length = 32; // bytes that a receiver clears before each read; the other serial
                                 // tests overwrite it
inline int32_t error_flag = 0;   // set by -e, cleared by -i; nothing reads it
inline uint8_t hdlc_mode = 0;    // non-zero: asynchronous opens become synchronous ones

// Clamps both periods to their ranges, after the whole command line is read.
inline void clamp_periods() {
    led_period = std::clamp(led_period, 1, 60);
    log_period = std::clamp(log_period, 5, 600);
}

// The board's MAC address as twelve lower-case hexadecimal digits; empty before name_board.
constexpr int MAC_BYTES = 6;
inline char mac_hex[2 * MAC_BYTES + 1];

constexpr int32_t TRANSFER_BYTES = 512; // the longest block of the serial tests

// The shared transmit buffer of the serial tests, which the supervisor fills with 0xAA at start-up.
inline std::array<uint8_t, TRANSFER_BYTES> tx_buffer;
