// What the test of an SPI device does in a turn.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/time.h>

#include "runtime/record.h"

// Reads `length` bytes (32 at most) from the start of a memory device; the contents do not matter.
// Counts a complete read in `read_count`, a short one in `errors2`, a failed open in `errors`.
void spi_read_device(TestRecord &record, const char *device_path, size_t length);

constexpr size_t LOOPBACK_BYTES = 20;

// Sends 20 bytes in one transfer. Returns 1 if it received the same 20 bytes, which are then in
// `reply`, else 0.
int spi_manufacturer_poll(std::span<const uint8_t, LOOPBACK_BYTES> transmit,
                          std::span<uint8_t, LOOPBACK_BYTES> reply, int device);

constexpr size_t EEPROM_MESSAGE_MAX = 80;

// Checks the time of an eeprom pass. It must end in the second in which it began, or in a later one
// and, by the microseconds, at most 100 ms after its begin. Returns 0 if it took too long, with a
// message for the log; else another number and no message.
int32_t check_eeprom_timing(const timeval &begin, const timeval &end,
                            char (&message)[EEPROM_MESSAGE_MAX]);
