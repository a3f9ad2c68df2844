// What the words of a record count, by its letter: the one place for every reader of the table or
// of the results list, and for the documents.

#pragma once

#include <cstdint>
#include <iterator>

#include "supervisor/lists/line_row.h"

// Null where a test does not keep the word.
struct counter_meaning {
    record_letter letter;
    const char *option;          // letter of the option that claims such a record
    const char *test;            // what is tested, in one word
    const char *write_count;     // what it counts
    const char *read_count;      // likewise
    const char *prev_read_count; // likewise, where it is the test's own and not the report's
    const char *errors;
    const char *errors2;
    const char *errors3;
    const char *sample_position; // the first word of an error sample
    const char *sample_value;    // the second one
    int32_t turn_s; // the longest time from one look at the hold word to the next, in seconds
};

// The times are those of the slowest line, 1200 bit/s, and of a board that answers nothing: -L
// looks once a pass over its map, -D once a pass over the memory, -K every two seconds, -M after
// four transfers that flush every file system.
// clang-format off
constexpr counter_meaning COUNTER_MEANINGS[] = {
    {record_letter::RECEIVER, "C", "receiver",
     nullptr, "reads", "good blocks",
     "silences and failed reads", "bad blocks, silences before a hold", "failed opens",
     "position", "bad byte", 5},
    {record_letter::DRAM, "D", "dram",
     "blocks tested", "blocks mapped", nullptr,
     "bad blocks and failed maps", nullptr, nullptr,
     nullptr, nullptr, 120},
    {record_letter::ECHO_BACK, nullptr, "echo",
     "bytes sent back", "bytes read", nullptr,
     nullptr, nullptr, nullptr,
     nullptr, nullptr, 5},
    {record_letter::FIO, "F", "fio",
     "outputs set", "inputs read", "inputs read",
     "realigned replies and failed opens", "mismatches", "failed exchanges",
     "step", "byte read", 30},
    {record_letter::SPI_FIO, "L", "spifio",
     "requests sent", "inputs read", nullptr,
     "failed opens", "mismatches", "failed exchanges",
     "step", "input byte", 60},
    {record_letter::FILE_COPY, "M", "filecopy",
     "writes", "reads", nullptr,
     "empty transfers and a failed set-up", nullptr, nullptr,
     nullptr, nullptr, 30},
    {record_letter::CROSSOVER, "E", "crossover",
     "frames written", "frames read and good", nullptr,
     "failed reads", "bad frames, line faults, and runs of more than three silences", "time-outs",
     "frame length", "first bad byte", 15},
    {record_letter::PRODUCER, "P", "producer",
     "blocks written", nullptr, nullptr,
     "failed opens and failed writes", nullptr, nullptr,
     nullptr, nullptr, 5},
    {record_letter::SPI_DEVICE, "S", "spi",
     "transfers", "complete reads, good transfers", nullptr,
     "failed opens", "short reads, bad transfers, failed opens of a loopback", nullptr,
     nullptr, nullptr, 5},
    {record_letter::FILESYSTEM, "Y", "files",
     "files created", "files read", nullptr,
     "bad files and a failed set-up", nullptr, nullptr,
     nullptr, nullptr, 15},
    {record_letter::PANEL, "K", "panel",
     nullptr, nullptr, nullptr,
     nullptr, nullptr, nullptr,
     nullptr, nullptr, 5},
};

// The second record of -F has the letter of a receiver.
constexpr counter_meaning SECOND_FIO_MEANING =
    {record_letter::RECEIVER, "F", "fio",
     "outputs set", "inputs read", "inputs read",
     "realigned replies", "mismatches", "failed exchanges",
     "step", "byte read", 30};
// clang-format on
static_assert(has_a_row_for_every_letter(COUNTER_MEANINGS));
