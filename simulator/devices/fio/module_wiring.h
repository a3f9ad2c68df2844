// The loopback harnesses of the simulated field I/O modules: the inputs to which each output is
// wired.
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

// The harness of a module type on the synchronous port, and on SPI.
module_wiring line_harness(int module_type);
module_wiring spi_harness(int module_type);

} // namespace simulator
