#include "simulator/devices/fio/fio_module.h"

#include "simulator/time/clock.h"

#include <algorithm>
#include <iterator>

namespace simulator {

namespace {

constexpr uint8_t TOP_BITS = 0xC0;
constexpr size_t STATUS_BYTES = 7; // of a status reply; no program reads them

uint8_t bit_value(int bit) {
    return static_cast<uint8_t>(1U << (bit - 1));
}

bool is_set(const std::array<uint8_t, MODULE_BYTES> &bytes, int byte, int bit) {
    return (bytes[static_cast<size_t>(byte)] & bit_value(bit)) != 0;
}

// Returns the possible numbers after `text`; empty if the wanted one is among them.
std::string other_numbers(int wanted, std::string text, const std::set<int> &possible) {
    if (possible.contains(wanted))
        return "";
    for (const int number : possible)
        text.append(" ").append(std::to_string(number));
    return text;
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
        return {identity()};
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

// On SPI, the two top bits of module 219's input byte 7 are inverted. Bit 2 of byte 11 is set while
// one of them reads as set.
std::array<uint8_t, MODULE_BYTES> fio_module::read_inputs() const {
    std::array<uint8_t, MODULE_BYTES> inputs{};
    for (const wire &path : wiring.wires)
        if (is_set(outputs, path.output_byte, path.output_bit) && !is_dead(path))
            inputs[static_cast<size_t>(path.input_byte)] |= bit_value(path.input_bit);
    for (const fault &present : faults)
        if (present.kind->id == fault_id::stuck && present.is_active(now_us()) &&
            !is_set(inputs, present.numbers[0], present.numbers[1])) {
            inputs[static_cast<size_t>(present.numbers[0])] |= bit_value(present.numbers[1]);
            present.count_strike();
        }
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
            return present.kind->id == fault_id::silent && present.numbers[0] + '0' == command &&
                   present.strikes(now_us());
        });
}

bool fio_module::is_dead(const wire &path) const {
    return std::ranges::any_of(
        faults,
        [&](const fault &present) {
            return present.kind->id == fault_id::dead && present.numbers[0] == path.output_byte &&
                   present.numbers[1] == path.output_bit && present.strikes(now_us());
        });
}

uint8_t fio_module::identity() const {
    for (const fault &present : faults)
        if (present.kind->id == fault_id::type && present.strikes(now_us()))
            return static_cast<uint8_t>(present.numbers[0]);
    return type;
}

std::string fio_module::possible_instead(const fault &wanted, size_t input_bytes) const {
    if (wanted.target != name)
        return "";
    switch (wanted.kind->id) {
    case fault_id::silent: {
        constexpr int ANSWERED[] = {1, 4, 7, 12};
        return std::ranges::find(ANSWERED, wanted.numbers[0]) != std::end(ANSWERED)
                   ? ""
                   : "commands 1 4 7 12, the program sends no others";
    }
    case fault_id::stuck:
        return other_numbers(wanted.numbers[0], "inputs that are wired and read are in bytes",
                             input_bytes_wired(input_bytes));
    case fault_id::dead:
        return other_outputs(wanted);
    case fault_id::type:
        return wanted.numbers[0] != type ? "" : "any type but its own";
    default:
        return "";
    }
}

std::set<int> fio_module::input_bytes_wired(size_t read_bytes) const {
    std::set<int> bytes;
    for (const wire &path : wiring.wires)
        if (path.input_byte < static_cast<int>(read_bytes))
            bytes.insert(path.input_byte);
    return bytes;
}

// The wired bits of the fault's byte, or the wired bytes if that one has none; empty if the fault
// is in a wired bit.
std::string fio_module::other_outputs(const fault &wanted) const {
    std::set<int> bytes;
    std::set<int> bits;
    for (const wire &path : wiring.wires) {
        bytes.insert(path.output_byte);
        if (path.output_byte == wanted.numbers[0])
            bits.insert(path.output_bit);
    }
    if (bits.empty())
        return other_numbers(wanted.numbers[0], "outputs that are wired are in bytes", bytes);
    return other_numbers(wanted.numbers[1], "outputs of that byte that are wired are bits", bits);
}

bool fio_module::take_fault(const fault &wanted, size_t input_bytes) {
    if (wanted.target != name || !possible_instead(wanted, input_bytes).empty())
        return false;
    faults.push_back(wanted);
    return true;
}

bool fio_module::strikes(fault_id id) const {
    return std::ranges::any_of(
        faults,
        [&](const fault &present) {
            return present.kind->id == id && present.strikes_nth(now_us(), replies);
        });
}

void fio_module::corrupt(std::span<uint8_t> data) const {
    if (!data.empty() && strikes(fault_id::corrupt_reply))
        data[replies % data.size()] ^= static_cast<uint8_t>(1U << replies % 8);
}

int64_t fio_module::delay_us() const {
    int64_t delay = 0;
    for (const fault &present : faults)
        if (present.kind->id == fault_id::delay && present.strikes(now_us()))
            delay += present.numbers[0] * US_PER_MS;
    return delay;
}

} // namespace simulator
