#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/time.h>
#include <sys/types.h>

#include "runtime/record.h"

// Starts the test of one SPI device: 1 the datakey, 2 the eeprom, 4 and 8 the loopbacks on
// "/dev/reserved" and "/dev/manufacturer". With any other selector it loops and opens nothing.
// Claims one record. If `no_fork` is not 0, it only claims and returns `no_fork`. Otherwise it
// returns the test process's id, or -1 if fork failed.
pid_t spi_device_test(int no_fork, int32_t selector);

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
