// The wiring of a module's outputs to its inputs in the loopback harnesses.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// One output bit and the input bits that must follow it. Bytes count from 0, bits from 1 to 8.
struct loop_step {
    uint8_t output_byte;
    uint8_t output_bit; // 0 ends the map
    uint8_t input_byte;
    uint8_t input_bit;
    uint8_t second_byte;
    uint8_t second_bit; // 0: the output has only one input
};
static_assert(sizeof(loop_step) == 6);

// The steps and the closing row.
template <size_t STEPS>
using loopback_map = std::array<loop_step, STEPS + 1>;

constexpr size_t IDENTITY_STEPS = 64;
constexpr size_t A_STEPS = 102;
constexpr size_t C_STEPS = 112;
constexpr size_t S_STEPS = 117;

extern const loopback_map<IDENTITY_STEPS> IDENTITY_MAP; // modules 1 and 221
extern const loopback_map<A_STEPS> MAP_A;               // modules 2 and 219 on the sync port
extern const loopback_map<C_STEPS> MAP_C;               // module 220
extern const loopback_map<S_STEPS> MAP_S;               // module 219 on SPI
