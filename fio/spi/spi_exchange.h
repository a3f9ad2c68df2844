// One request to a field I/O module on an SPI device, and its reply, in one transfer.
//
//     sent:     request from its command on, check byte, zeros
//     received: anything, then command + 0x80, data, check byte
//
// Address and function code are not sent.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fio/fio_frame.h"

constexpr size_t SPI_AREA_BYTES = 128; // sent, and as many received

// Returns 0 with the reply in `reply`: address and function code as in the request, the marker, the
// data without the check byte. Returns 1 for an unknown command, which it does not send, and if no
// good reply arrived. The request has 3 to FRAME_BYTES bytes.
int spi_fio_exchange(std::span<const uint8_t> request, fio_frame &reply, int device);

// Writes the check byte of the first `length` bytes of a block after them: the exclusive-or of 0xFF
// and every byte.
void fio_check_append(std::span<uint8_t> block, size_t length);

// Returns true for a block that ends with its check byte.
bool fio_check_verify(std::span<const uint8_t> block);

// Returns the bytes of the reply to a command, with marker and check byte; 0 for an unknown
// command.
size_t spi_reply_length(uint8_t command);

// Returns the reply of `length` bytes in the received bytes, from the first marker on, with its
// check byte. Returns nothing if there is no marker, if the reply would reach the end of the area,
// or if its check byte is wrong. It does not try a later marker.
std::optional<std::span<const uint8_t>>
find_spi_reply(std::span<const uint8_t, SPI_AREA_BYTES> received, uint8_t marker, size_t length);
