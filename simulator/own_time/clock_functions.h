// The machine code that takes the place of the kernel's clock functions in a program, see
// clock_stub.h.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace simulator {

// Position-independent. It ends with a word of eight bytes that the board fills in: the address of
// the page in the process. While that is 0, the function makes the plain system call.
struct clock_function {
    const char *name;              // of the kernel's, see vdso(7)
    uint32_t call;                 // that does the same
    std::span<const uint8_t> code; // empty: there is only the call
};

// Empty on a processor for which there is no code.
std::span<const clock_function> clock_functions();

// The code that makes the system call and returns.
std::vector<uint8_t> plain_call(uint32_t number);

// The code that maps the shared memory into a process, shows the board where it is with a plain
// call for the time, whose fourth argument is the address, and then goes on at `return_address`.
// `lent` is the descriptor for the mapping, which it closes.
std::vector<uint8_t> mapping_code(int lent, uint64_t return_address);

// The code that goes to another address and changes no register.
std::vector<uint8_t> jump_to(uint64_t address);

} // namespace simulator
