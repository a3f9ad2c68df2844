// Full-duplex transfers over the SPI user-space interface, see linux/spi/spidev.h.

#pragma once

#include <cstdint>
#include <span>

// Settings that a process has sent to the device. Each transport has its own copy and sends the
// settings once, before its first transfer.
struct spi_settings {
    bool sent = false;
};

// Sends and receives transmit.size() bytes, in mode 2, at 8 bits per word and 250000 Hz; `receive`
// has room for them. Does not report a failure: the caller clears `receive` before and checks it
// after.
void spi_transfer(int device, spi_settings &settings, std::span<const uint8_t> transmit,
                  std::span<uint8_t> receive);
