// The memory that the board shares with the programs: the clock, what calls on ports would return,
// and code. Each program with a C library maps it, at any address; forks inherit it. Nothing here
// needs the C++ library, whose headers the code for the programs cannot include.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace simulator {

// See clock_stub.h.
struct clock_page {
    struct moment {
        int64_t seconds;
        int64_t fraction;
    };

    int32_t reads_left;          // a read without one left is a system call
    alignas(16) moment calendar; // in nanoseconds, CLOCK_REALTIME
    moment monotonic;            // in nanoseconds, CLOCK_MONOTONIC
    moment time_of_day;          // in microseconds, gettimeofday(2)
};

// What calls on one port would return now, see quick_calls.h.
struct quick_port {
    static constexpr size_t INPUT_BYTES = 512;

    int32_t descriptor;
    int16_t events;   // as poll(2) would find them; 0: a poll is a call
    bool is_readable; // else a read is a call
    bool is_drained;  // else tcdrain(3) is a call
    uint32_t room;    // a longer write is a call
    uint32_t waiting; // bytes of `input`: all that a read can return
    uint8_t input[INPUT_BYTES];
};

// A read or a write that the program has made.
struct quick_entry {
    uint32_t port; // the index
    bool is_write;
    uint32_t bytes; // the result
};

// An area of the process's memory; `end` is the address after it.
struct memory_area {
    uint64_t begin;
    uint64_t end;
};

struct quick_page {
    static constexpr size_t PORTS = 4;
    static constexpr size_t ENTRIES = 64;
    static constexpr size_t OUTPUT_BYTES = 4096;

    memory_area areas[2]; // that the process can read and write
    uint32_t port_count;
    uint32_t entry_count;
    uint32_t output_bytes;
    quick_port ports[PORTS];
    quick_entry entries[ENTRIES];
    uint8_t output[OUTPUT_BYTES]; // what the writes wrote, in their order
};

// The parts, in bytes from the beginning. The code and the paths to it (call_sites.h) are the same
// for all processes.
constexpr size_t CLOCK_PAGE_BYTES = 4096;
constexpr size_t QUICK_PAGE_OFFSET = CLOCK_PAGE_BYTES;
constexpr size_t QUICK_CODE_OFFSET = 4 * CLOCK_PAGE_BYTES;
constexpr size_t QUICK_PATHS_OFFSET = 5 * CLOCK_PAGE_BYTES;
constexpr size_t SHARED_BYTES = 8 * CLOCK_PAGE_BYTES;
static_assert(sizeof(clock_page) <= CLOCK_PAGE_BYTES);
static_assert(sizeof(quick_page) <= QUICK_CODE_OFFSET - QUICK_PAGE_OFFSET);

} // namespace simulator
