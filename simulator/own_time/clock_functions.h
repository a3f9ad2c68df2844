// The machine code that takes the place of the kernel's clock functions in a program, see
// clock_stub.h; and the page that it reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace simulator {

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

constexpr size_t CLOCK_PAGE_BYTES = 4096;

// Position-independent. It ends with two words of eight bytes that the board fills in: the address
// of the page in the process, 0 until it is known, and the descriptor that the code lends for the
// mapping of the page and closes.
struct clock_function {
    const char *name;              // of the kernel's, see vdso(7)
    uint32_t call;                 // that does the same
    std::span<const uint8_t> code; // empty: there is only the call
};

// Empty on a processor for which there is no code.
std::span<const clock_function> clock_functions();

// The code that makes the system call and returns.
std::vector<uint8_t> plain_call(uint32_t number);

} // namespace simulator
