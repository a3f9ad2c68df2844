#pragma once

#include <cstdint>

// The number at the start of every line of the results list. Production scripts use it. Some tests
// share a number: the name in the line distinguishes them. A new test takes the next free number.
enum kind_code : int32_t {
    // The serial links: the receiver and the producer at the other end have the same code. The
    // receiving port gives the name.
    KIND_LINK_TO_PORT_3 = 0,
    KIND_LINK_TO_PORT_5 = 1,
    KIND_LINK_TO_PORT_2 = 2,
    KIND_LINK_TO_PORT_1 = 3,
    KIND_LINK_TO_OTHER_PORT = 4,

    KIND_FIO_SECOND = 1, // the module at address 16
    KIND_FIO_FIRST = 10, // the module at address 20

    KIND_CROSSOVER = 5,
    KIND_FILE_COPY = 5,
    KIND_DATAKEY = 6,
    KIND_EEPROM = 7, // also for every other SPI device
    KIND_DRAM = 8,
    KIND_SPI_FIO = 9,
    KIND_FILESYSTEM = 11,

    KIND_END, // above all codes
};
