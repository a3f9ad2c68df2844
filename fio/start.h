// Starts the tests of field I/O modules and SPI devices. If `no_fork` is not 0, a routine only
// claims its records and returns `no_fork`. Otherwise it returns the test process's id, or -1 if
// fork failed.

#pragma once

#include <cstdint>
#include <sys/types.h>

// The two field I/O modules on the sync port with this name ("5"). Claims two records, the first
// for the module at address 20, the second for the one at address 16.
pid_t fio_loop_test(int no_fork, const char *port);

// The field I/O module on an SPI device. Claims one record.
pid_t spi_fio_loop_test(int no_fork, const char *device_path);

// One SPI device: 1 the datakey, 2 the eeprom, 4 and 8 the loopbacks on "/dev/reserved" and
// "/dev/manufacturer". With any other selector it loops and opens nothing. Claims one record.
pid_t spi_device_test(int no_fork, int32_t selector);
