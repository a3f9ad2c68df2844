// The loopback harnesses that the simulated field I/O modules wear: which inputs each output is
// wired to.
#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

struct wire {
    int output_byte; // bytes from 0, bits from 1 to 8
    int output_bit;
    int input_byte;
    int input_bit;
};

struct module_wiring {
    std::vector<wire> wires;
};

// The harness of a module type on the sync port, and on SPI.
module_wiring line_harness(int module_type);
module_wiring spi_harness(int module_type);

} // namespace simulator
