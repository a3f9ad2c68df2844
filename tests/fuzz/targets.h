// Code that takes whatever a device sends or an operator writes, given any bytes. Each target
// checks what must hold and aborts when it does not.

#pragma once

#include <cstdint>
#include <span>

// Marker, expected length, then what one read of the sync port brought.
void fuzz_fio_reply(std::span<const uint8_t> input);

// Marker, reply length, then what an SPI transfer brought.
void fuzz_spi_reply(std::span<const uint8_t> input);

// A command line, its arguments separated by zero bytes.
void fuzz_option_walk(std::span<const uint8_t> input);
