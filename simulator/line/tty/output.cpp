#include "simulator/line/tty/output.h"

#include <array>

namespace simulator::line {

namespace {

constexpr std::array<uint8_t, 2> NEWLINE = {'\r', '\n'};

bool is_control(uint8_t byte) {
    return byte < ' ' || byte == 0x7f;
}

} // namespace

size_t output_processing::write(int64_t now, std::span<const uint8_t> bytes) {
    if ((flags & OPOST) == 0)
        return out.put(now, bytes);
    size_t taken = 0;
    while (taken < bytes.size() && put_processed(now, bytes[taken]))
        taken++;
    return taken;
}

bool output_processing::put_processed(int64_t now, uint8_t byte) {
    if ((flags & OPOST) != 0 && (flags & ONLCR) != 0 && byte == '\n')
        return out.room() >= NEWLINE.size() && out.put(now, NEWLINE) == NEWLINE.size();
    const bool is_mapped = (flags & OPOST) != 0 && (flags & OCRNL) != 0 && byte == '\r';
    const uint8_t sent = is_mapped ? '\n' : byte;
    return out.put(now, std::span(&sent, 1)) == 1;
}

bool output_processing::shows_control(uint8_t byte) const {
    return (local_flags & ECHOCTL) != 0 && is_control(byte) && byte != '\t';
}

int output_processing::echo_columns(uint8_t byte) const {
    if (!is_control(byte))
        return 1;
    return shows_control(byte) ? 2 : 0;
}

void output_processing::echo(int64_t now, uint8_t byte) {
    if (!shows_control(byte)) {
        (void)put_processed(now, byte); // lost when there is no room
        return;
    }
    const std::array<char, 2> shown = {'^', static_cast<char>(byte ^ 0x40U)};
    echo_text(now, {shown.data(), shown.size()});
}

void output_processing::echo_text(int64_t now, std::string_view text) {
    for (const char each : text)
        (void)put_processed(now, static_cast<uint8_t>(each)); // lost when there is no room
}

} // namespace simulator::line
