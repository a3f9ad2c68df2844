#pragma once

#include <sys/types.h>

// Starts the test of the field I/O module on an SPI device. Claims one record. If `no_fork` is not
// 0, it only claims and returns `no_fork`. Otherwise it returns the test process's id, or -1 if
// fork failed.
pid_t spi_fio_loop_test(int no_fork, const char *device_path);
