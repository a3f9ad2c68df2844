#include "simulator/devices/panel/display_lines.h"

#include <array>
#include <cstdio>

namespace simulator {

namespace {

constexpr uint8_t ESC = 0x1B;
constexpr size_t LINE_BYTES = 400; // a longer line is broken
constexpr size_t SEQUENCE_BYTES = 32;

bool ends_sequence(uint8_t byte) {
    return byte >= 0x40 && byte <= 0x7E;
}

void append_byte(std::string &line, uint8_t byte) {
    if (byte >= ' ' && byte <= '~') {
        line += static_cast<char>(byte);
        return;
    }
    std::array<char, 8> text{};
    snprintf(text.data(), text.size(), "\\x%02x", byte);
    line += text.data();
}

} // namespace

bool display_lines::take(uint8_t byte) {
    if (sequence.empty() && byte == ESC) {
        sequence += static_cast<char>(byte);
        return false;
    }
    if (sequence.size() == 1 && byte != '[') { // not a sequence
        append_byte(line, ESC);
        sequence.clear();
    }
    if (!sequence.empty()) {
        sequence += static_cast<char>(byte);
        if ((sequence.size() > 2 && ends_sequence(byte)) || sequence.size() == SEQUENCE_BYTES)
            show_sequence();
        return false;
    }
    if (byte == '\n')
        return true;
    if (byte != '\r')
        append_byte(line, byte);
    return line.size() >= LINE_BYTES;
}

void display_lines::start_line() {
    line.clear();
}

void display_lines::show_sequence() {
    const std::string parameters = sequence.substr(2);
    line += parameters == "2J" ? "<clear>" : '<' + parameters + '>';
    sequence.clear();
}

} // namespace simulator
