// The SPI memories as the program sees them: ordinary files in /dev with the memory's contents.
// /dev/datakeypresent has one byte, not 0 when the key is in its holder.
#pragma once

#include "simulator/devices/device.h"

#include <cstddef>
#include <string>
#include <vector>

namespace simulator {

struct spi_memory final : device {
    spi_memory(std::string node_name, std::vector<uint8_t> node_contents)
        : device(std::move(node_name)), contents(std::move(node_contents)) {}

    bool open_nodes() override;

private:
    std::vector<uint8_t> contents;
};

} // namespace simulator
