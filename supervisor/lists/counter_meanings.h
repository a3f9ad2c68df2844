// What the words of a record count, by its letter: the one place for every reader of the table or
// of the results list, and for the documents.

#pragma once

#include <cstdint>
#include <iterator>

#include "supervisor/lists/line_row.h"

// Null where a test does not keep the word.
struct counter_meaning {
    record_letter letter;
    int32_t turn_s;              // longest time between two looks at the hold word, seconds
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
};

// The longest turns, from the constants of each test, on an idle machine, rounded up:
//
//   -C    0.16 s  two polls of 40 ms, and a nap of 80 ms if the port has hung up. After a hold also
//                 the stale input: without end if the far end never pauses for 5 ms
//   -D    118 s   3 GiB, the most that a pass maps, four times (the kernel's zeros, the fill, the
//                 check, the wipe) at 110 MB/s; less memory takes less
//   echo  4.4 s   512 bytes leave at 1200 bit/s, the slowest rate, then a poll of 100 ms
//   -F    58 s    two modules of 112 steps; a step sets its output once and reads its inputs up to
//                 five times, 10 ms apart; an exchange takes up to 35 ms (5 ms until the port is
//                 writable, the deadline of 24 ms, a last poll of 6 ms)
//   -L    4.1 s   117 steps of 30 ms and two transfers of up to 80 bytes at 250 kHz
//   -M    none    two calls of sync(2), which write back what any program has left to write; 30 s
//                 are assumed
//   -E    2.1 s   a frame of 14 bytes at 1200 bit/s: 0.12 s to leave, a line time of 0.39 s, then
//                 three polls of y and one of x of a line time each
//   -P    0.15 s  a poll of 10 ms, a block of 16 bytes at 1200 bit/s, a pause of 2 ms
//   -S    0.1 s   polls of 14 ms, a pause of 5 ms, and a memory that is not too slow
//   -Y    0.1 s   sixteen files of 512 bytes, which are in the page cache
//   -K    2 s     twenty polls of 100 ms after the last key
// clang-format off
constexpr counter_meaning COUNTER_MEANINGS[] = {
    {record_letter::RECEIVER, 1, "C", "receiver",
     nullptr, "reads", "good blocks",
     "silences and failed reads", "bad blocks, last silences before a hold", "failed opens",
     "position", "bad byte"},
    {record_letter::DRAM, 120, "D", "dram",
     "blocks tested", "blocks mapped", nullptr,
     "bad blocks and failed maps", nullptr, nullptr,
     nullptr, nullptr},
    {record_letter::ECHO_BACK, 5, nullptr, "echo",
     "bytes sent back", "bytes read", nullptr,
     nullptr, nullptr, nullptr,
     nullptr, nullptr},
    {record_letter::FIO, 59, "F", "fio",
     "outputs set", "inputs read", "inputs read",
     "realigned replies and failed opens", "mismatches", "failed exchanges",
     "step", "byte read"},
    {record_letter::SPI_FIO, 5, "L", "spifio",
     "requests", "inputs read", nullptr,
     "failed opens", "mismatches", "failed exchanges, two for a failed set",
     "step", "input byte"},
    {record_letter::FILE_COPY, 30, "M", "filecopy",
     "writes", "reads", nullptr,
     "empty transfers and a failed set-up", nullptr, nullptr,
     nullptr, nullptr},
    {record_letter::CROSSOVER, 3, "E", "crossover",
     "frames written", "frames read and good", nullptr,
     "failed reads", "bad frames, line faults, and silences in runs of four or more", "time-outs",
     "frame length", "first bad byte"},
    {record_letter::PRODUCER, 1, "P", "producer",
     "blocks written", nullptr, nullptr,
     "failed opens and failed writes", nullptr, nullptr,
     nullptr, nullptr},
    {record_letter::SPI_DEVICE, 1, "S", "spi",
     "transfers", "complete reads, good transfers", nullptr,
     "failed opens", "short reads, bad transfers, failed opens of a loopback", nullptr,
     nullptr, nullptr},
    {record_letter::FILESYSTEM, 1, "Y", "files",
     "files written", "files read", nullptr,
     "bad files and a failed set-up", nullptr, nullptr,
     nullptr, nullptr},
    {record_letter::PANEL, 3, "K", "panel",
     nullptr, nullptr, nullptr,
     nullptr, nullptr, nullptr,
     nullptr, nullptr},
};

// The second record of -F has the letter of a receiver.
constexpr counter_meaning SECOND_FIO_MEANING =
    {record_letter::RECEIVER, 59, "F", "fio",
     "outputs set", "inputs read", "inputs read",
     "realigned replies", "mismatches", "failed exchanges",
     "step", "byte read"};
// clang-format on
static_assert(has_a_row_for_every_letter(COUNTER_MEANINGS));
