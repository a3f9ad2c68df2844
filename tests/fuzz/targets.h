// Code that takes whatever a device sends or an operator writes, given any bytes. Each target
// checks what must hold and aborts when it does not.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

inline void require(bool holds) {
    if (!holds)
        abort();
}

// Marker, expected length, then what one read of the sync port brought.
void fuzz_fio_reply(std::span<const uint8_t> input);

// Marker, reply length, then what an SPI transfer brought.
void fuzz_spi_reply(std::span<const uint8_t> input);

// A command line, its arguments separated by zero bytes.
extern bool forks_fail;      // of the option walk
extern uint32_t paused_us;   // after the options of the last walk
extern int32_t hold_at_fork; // of the record that was claimed last
void fuzz_option_walk(std::span<const uint8_t> input);

// A log file, as hk_results reads it.
void fuzz_log_text(std::span<const uint8_t> input);

// Runs a target with every input that its list in corpus/ holds, one a line in hexadecimal. Returns
// how many there are.
int replay(const std::string &target, void (*run)(std::span<const uint8_t>));
