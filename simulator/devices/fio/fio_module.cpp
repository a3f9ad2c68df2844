#include "simulator/devices/fio/fio_module.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr uint8_t TOP_BITS = 0xC0;
constexpr size_t STATUS_BYTES = 7; // what a status reply carries; nobody looks at it

uint8_t bit_value(int bit) {
    return static_cast<uint8_t>(1U << (bit - 1));
}

bool is_set(const std::array<uint8_t, MODULE_BYTES> &bytes, int byte, int bit) {
    return (bytes[static_cast<size_t>(byte)] & bit_value(bit)) != 0;
}

} // namespace

fio_module::fio_module(std::string module_name, int module_type, module_wiring harness)
    : name(std::move(module_name)),
      type(static_cast<uint8_t>(module_type)),
      wiring(std::move(harness)) {}

std::vector<uint8_t> fio_module::execute(uint8_t command, std::span<const uint8_t> payload,
                                         size_t input_bytes) {
    if (is_silent_to(command))
        return {};
    replies++;
    switch (command) {
    case COMMAND_STATUS:
        return std::vector<uint8_t>(STATUS_BYTES, 0);
    case COMMAND_IDENTIFY:
        return {type};
    case COMMAND_SET:
        outputs.fill(0);
        std::copy_n(payload.begin(), std::min(payload.size(), outputs.size()), outputs.begin());
        return {0};
    case COMMAND_READ: {
        const std::array<uint8_t, MODULE_BYTES> inputs = read_inputs();
        return {inputs.begin(), inputs.begin() + static_cast<ptrdiff_t>(input_bytes)};
    }
    default:
        return {};
    }
}

// On SPI, the two top bits of module 219's input byte 7 are inverted, and as long as one of
// them then reads as set, so is bit 2 of byte 11.
std::array<uint8_t, MODULE_BYTES> fio_module::read_inputs() const {
    std::array<uint8_t, MODULE_BYTES> inputs{};
    for (const wire &path : wiring.wires)
        if (is_set(outputs, path.output_byte, path.output_bit) && !is_dead(path))
            inputs[static_cast<size_t>(path.input_byte)] |= bit_value(path.input_bit);
    for (const fault &present : faults)
        if (present.kind->id == fault_id::stuck)
            inputs[static_cast<size_t>(present.numbers[0])] |= bit_value(present.numbers[1]);
    if (top_bits_inverted) {
        inputs[7] ^= TOP_BITS;
        if ((inputs[7] & TOP_BITS) != 0)
            inputs[11] ^= bit_value(2);
    }
    return inputs;
}

bool fio_module::is_silent_to(uint8_t command) const {
    return std::ranges::any_of(
        faults,
        [&](const fault &present) {
            return present.kind->id == fault_id::silent && present.numbers[0] + '0' == command;
        });
}

bool fio_module::is_dead(const wire &path) const {
    return std::ranges::any_of(
        faults,
        [&](const fault &present) {
            return present.kind->id == fault_id::dead && present.numbers[0] == path.output_byte &&
                   present.numbers[1] == path.output_bit;
        });
}

bool fio_module::take_fault(const fault &wanted) {
    if (wanted.target != name || !is_fault_of(wanted, "module"))
        return false;
    if (wanted.kind->id == fault_id::type)
        type = static_cast<uint8_t>(wanted.numbers[0]);
    faults.push_back(wanted);
    return true;
}

bool fio_module::strikes(fault_id id) const {
    return std::ranges::any_of(
        faults,
        [&](const fault &present) {
            return present.kind->id == id &&
                   replies % static_cast<uint32_t>(present.numbers[0]) == 0;
        });
}

} // namespace simulator
