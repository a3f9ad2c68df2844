// The device on an SPI chip select, from its selection to its release: a field I/O module, or a
// loopback that returns each byte. A request begins with the selection. The reply follows in the
// same selection, some bytes after the end of the request.
#pragma once

#include "simulator/devices/fio/fio_module.h"

#include <cstdint>
#include <span>
#include <vector>

namespace simulator {

constexpr size_t SPI_INPUT_BYTES = 18; // in a read-inputs reply
constexpr int64_t SPI_BYTE_BITS = 8;

using spi_bytes = std::vector<uint8_t>;

class spi_selection {
public:
    // Shifts bytes through the device, which sends the same number back. Without a module it is a
    // loopback.
    spi_bytes shift(std::span<const uint8_t> sent, fio_module *module, uint32_t clock_hz);
    // The chip select is released: the next byte begins a new request.
    void release();

private:
    void answer_request(fio_module &module, size_t end, uint32_t clock_hz);

    spi_bytes taken; // since the selection
    spi_bytes reply;
    size_t reply_begin = 0; // in the bytes of the selection
};

// The bytes that a receiver gets if it takes each bit one clock late.
spi_bytes one_bit_late(std::span<const uint8_t> bytes);

} // namespace simulator
