#include "fio/spi/spi_inputs.h"

namespace {

constexpr uint8_t INPUTS = 14; // bytes that are compared

constexpr size_t input_at(size_t byte) {
    return DATA_AT + byte;
}

} // namespace

void correct_inputs(fio_frame &reply, uint8_t module_type) {
    if (module_type == 219) {
        constexpr uint8_t INVERTED = 0xC0;
        constexpr uint8_t INVERTED_WITH_THEM = 0x02;
        if ((reply[input_at(7)] & INVERTED) != 0)
            reply[input_at(11)] ^= INVERTED_WITH_THEM;
        reply[input_at(7)] ^= INVERTED;
    } else if (module_type == 221) {
        for (size_t byte = 8; byte <= 12; ++byte)
            reply[input_at(byte)] = 0;
    }
}

bool inputs_follow(const fio_frame &reply, const loop_step &step) {
    for (uint8_t byte = 0; byte < INPUTS; ++byte) {
        const uint8_t value = reply[input_at(byte)];
        if (byte == step.input_byte) {
            if (value != bit_pattern(step.input_bit))
                return false;
        } else if (value == 0 && step.second_bit != 0 && byte == step.second_byte) {
            return false;
        }
    }
    return true;
}
