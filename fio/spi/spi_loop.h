#pragma once

#include <sys/types.h>

// Starts the test of the field I/O module behind an SPI device. Claims one record. With `no_fork`
// it stops there and returns it; otherwise it returns the test process's id, or -1 when fork
// failed.
pid_t spi_fio_loop_test(int no_fork, const char *device_path);
