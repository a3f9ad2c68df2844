#include "simulator/line/tty/output.h"

#include <array>

namespace simulator::line {

namespace {

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

// False if there is no room for all of it.
bool output_processing::put_text(int64_t now, std::string_view text) {
    if (out.room() < text.size())
        return false;
    for (const char each : text) {
        const auto byte = static_cast<uint8_t>(each);
        (void)out.put(now, std::span(&byte, 1)); // there is room
    }
    return true;
}

bool output_processing::put_processed(int64_t now, uint8_t byte) {
    if (out.room() == 0)
        return false;
    if ((flags & OPOST) == 0)
        return out.put(now, std::span(&byte, 1)) == 1;
    switch (byte) {
    case '\n':
        return put_line_feed(now);
    case '\r':
        return put_carriage_return(now);
    case '\t':
        return put_tab(now);
    default:
        return put_visible(now, byte);
    }
}

bool output_processing::put_line_feed(int64_t now) {
    const bool is_put = put_text(now, (flags & ONLCR) != 0 ? "\r\n" : "\n");
    if (is_put && (flags & (ONLCR | ONLRET)) != 0)
        column = 0;
    return is_put;
}

bool output_processing::put_carriage_return(int64_t now) {
    if ((flags & ONOCR) != 0 && column == 0)
        return true; // is not sent
    const bool becomes_line_feed = (flags & OCRNL) != 0;
    if (!becomes_line_feed || (flags & ONLRET) != 0)
        column = 0;
    return put_text(now, becomes_line_feed ? "\n" : "\r");
}

bool output_processing::put_tab(int64_t now) {
    constexpr std::string_view SPACES = "        ";
    const std::string_view spaces = SPACES.substr(column % SPACES.size());
    const bool is_put = put_text(now, (flags & TABDLY) == XTABS ? spaces : "\t");
    column += is_put ? static_cast<unsigned>(spaces.size()) : 0;
    return is_put;
}

bool output_processing::put_visible(int64_t now, uint8_t byte) {
    if (byte == '\b' && column > 0)
        column--;
    else if (!is_control(byte))
        column++;
    const bool is_raised = (flags & OLCUC) != 0 && byte >= 'a' && byte <= 'z';
    const uint8_t sent = is_raised ? static_cast<uint8_t>(byte - 'a' + 'A') : byte;
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
