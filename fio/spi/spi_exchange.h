// One request to a field I/O module behind an SPI device, and its reply, in one transfer.
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

constexpr size_t SPI_AREA_BYTES = 128; // of what is sent and of what is received, each

// Returns 0 with the reply in `reply`: address and function code as in the request, the marker, the
// data without the check byte. Returns 1 for a command whose reply is not known, for which nothing
// is sent, and when no good reply came. The request has 3 to FRAME_BYTES bytes.
int spi_fio_exchange(std::span<const uint8_t> request, fio_frame &reply, int device);

// Appends the check byte of the first `length` bytes of a block: 0xFF, exclusive-or
// every byte.
void fio_check_append(std::span<uint8_t> block, size_t length);

// True for a block that ends with its check byte.
bool fio_check_verify(std::span<const uint8_t> block);

// Bytes of the reply to a command, marker and check byte included; 0 for an unknown command.
size_t spi_reply_length(uint8_t command);

// The reply of `length` bytes in what was received: from the first marker on, check byte included.
// Nothing when there is no marker, when the reply would end at or after the end of the area, or
// when its check byte is wrong; a later marker is not looked for.
std::optional<std::span<const uint8_t>>
find_spi_reply(std::span<const uint8_t, SPI_AREA_BYTES> received, uint8_t marker, size_t length);
