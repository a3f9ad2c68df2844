#include "simulator/devices/fio/field_io.h"

#include "simulator/devices/spi/spi_device.h"
#include "simulator/devices/spi/spi_memory.h"

namespace simulator {

namespace {

constexpr size_t MEMORY_BYTES = 256;
constexpr size_t SHORT_BYTES = 20; // of a memory that ends too early

void add_memory(board &built, const char *node, size_t bytes, uint8_t value) {
    built.devices.push_back(std::make_unique<spi_memory>(node, std::vector<uint8_t>(bytes, value)));
}

} // namespace

void add_spi(const field_io_options &options, board &built) {
    for (const auto &[node, module_type] : options.spi)
        built.devices.push_back(std::make_unique<spi_device>(node, module_type));
    if (options.datakey != datakey_state::none) {
        const bool present = options.datakey == datakey_state::present;
        add_memory(built, "datakeypresent", 1, present ? 0x80 : 0);
        add_memory(built, "datakey", present ? MEMORY_BYTES : 0, 0x5A);
    }
    if (options.eeprom != eeprom_state::missing) {
        const bool good = options.eeprom == eeprom_state::good;
        add_memory(built, "eeprom", good ? MEMORY_BYTES : SHORT_BYTES, 0xA5);
    }
}

} // namespace simulator
