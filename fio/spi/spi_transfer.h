// Full-duplex transfers over the SPI user-space interface, see linux/spi/spidev.h.

#pragma once

#include <cstdint>
#include <span>

// What a process has done to the device so far. Each transport has one of its own, so that each
// sends the settings once, before its first transfer.
struct spi_settings {
    bool sent = false;
};

// Sends and receives the same number of bytes, as many as `transmit` has, under mode 2, 8 bits per
// word and 250000 Hz; `receive` has room for them. Failures show in what was received, which the
// caller has cleared.
void spi_transfer(int device, spi_settings &settings, std::span<const uint8_t> transmit,
                  std::span<uint8_t> receive);
