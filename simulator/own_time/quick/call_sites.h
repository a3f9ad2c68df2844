// The places at which programs make calls, and how a call goes from there to the code that
// answers it, see quick_calls.h.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace simulator {

// A place in a program at which it makes one of the calls: the address of the instruction that
// enters the kernel, and the number of the call.
struct call_site {
    uint64_t address;
    uint32_t call;
};

// The code that answers calls, entered at its beginning. It is position-independent. Empty on a
// processor for which there is none.
std::span<const uint8_t> quick_code();

// How many bytes of code around a site `change_site` looks at, before and after its address.
constexpr size_t BEFORE_SITE = 5;
constexpr size_t AFTER_SITE = 24;

// The path from a site to the quick code and back. `offset` is that of the path in the shared
// memory. All paths have the same length.
std::vector<uint8_t> path_of(const call_site &site, uint64_t offset);

struct code_change {
    int64_t offset; // from the site's address
    std::vector<uint8_t> code;
};

// What makes the site take the path at that address. `around` has the bytes around the site. None
// if the site does not look like those of the C library, or if the path is too far away.
std::vector<code_change> change_site(const call_site &site, std::span<const uint8_t> around,
                                     uint64_t path);
// Where the jump at a site goes to. 0 if there is none.
uint64_t target_of_site(uint64_t address, std::span<const uint8_t> around);

} // namespace simulator
