#pragma once

#include <cstdint>

// What a record is of, in its `test_letter`. These letters are not those of the options: -E claims
// records of letter 'N', and no option starts the echo.
enum class record_letter : char {
    PANEL = '\0', // shows in no list
    RECEIVER = 'C',
    DRAM = 'D',
    ECHO_BACK = 'E',
    FIO = 'F', // the first of the two field I/O modules; the second is listed as a receiver
    SPI_FIO = 'L',
    FILE_COPY = 'M',
    CROSSOVER = 'N',
    PRODUCER = 'P',
    SPI_DEVICE = 'S',
    FILESYSTEM = 'Y',
};

// True for a letter of the list above: -Wswitch names one that is missing here.
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
