#pragma once

#include <cstdint>

// The test of a record, in its `test_letter`. The option letters differ: -E claims records of
// letter 'N', and no option starts the echo.
enum class record_letter : char {
    PANEL = '\0', // no list has a line for it
    RECEIVER = 'C',
    DRAM = 'D',
    ECHO_BACK = 'E',
    FIO = 'F', // the first of the two field I/O modules; the second has the letter of a receiver
    SPI_FIO = 'L',
    FILE_COPY = 'M',
    CROSSOVER = 'N',
    PRODUCER = 'P',
    SPI_DEVICE = 'S',
    FILESYSTEM = 'Y',
};

#pragma GCC diagnostic push
#pragma GCC diagnostic error "-Wswitch"
// Returns true for a letter of the list above. Does not compile if a letter is missing here.
constexpr bool is_record_letter(int32_t code) {
    switch (static_cast<record_letter>(code)) {
    case record_letter::PANEL:
    case record_letter::RECEIVER:
    case record_letter::DRAM:
    case record_letter::ECHO_BACK:
    case record_letter::FIO:
    case record_letter::SPI_FIO:
    case record_letter::FILE_COPY:
    case record_letter::CROSSOVER:
    case record_letter::PRODUCER:
    case record_letter::SPI_DEVICE:
    case record_letter::FILESYSTEM:
        return true;
    }
    return false;
}
#pragma GCC diagnostic pop
