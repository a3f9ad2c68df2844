#include "results/reading/lines/journal_export.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr int64_t US_PER_MS = 1000;

int64_t number_in(std::string_view text) {
    int64_t number = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

uint64_t little_endian(std::string_view bytes) {
    uint64_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i)
        value = value << 8 | static_cast<uint8_t>(bytes[i - 1]);
    return value;
}

} // namespace

void journal_entry::set(std::string_view name, std::string_view value) {
    if (name == "MESSAGE")
        message = value;
    else if (name == "_HOSTNAME")
        host = value;
    else if (name == "SYSLOG_IDENTIFIER")
        identifier = value;
    else if (name == "_PID")
        pid = static_cast<int32_t>(number_in(value));
    else if (name == "__REALTIME_TIMESTAMP")
        time_ms = number_in(value) / US_PER_MS;
}

bool journal_entry::take(std::string_view text, line_reader &reader) {
    if (is_complete)
        *this = {};
    if (text.empty()) {
        is_complete = true;
        return true;
    }
    const size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
        set(text.substr(0, equals), text.substr(equals + 1));
        return false;
    }
    const std::string name(text); // the next read moves the text
    const uint64_t length = little_endian(reader.next_bytes(sizeof(uint64_t)));
    set(name, reader.next_bytes(length));
    (void)reader.next_bytes(1); // its line break
    return false;
}

// The journal takes an identifier from the message only if it has no blank: of the ident
// "Stress 020000001234 " it keeps all in the message, and names the program itself.
parsed_line journal_entry::line() {
    parsed_line result;
    result.time_ms = time_ms;
    result.host = host;
    result.pid = pid;
    std::string_view text = message;
    while (text.ends_with('\n') || text.ends_with(' '))
        text.remove_suffix(1);
    const size_t mark = text.rfind(": ");
    result.text = mark != std::string_view::npos ? text.substr(mark + 2) : text;
    result.kind = kind_of(result.text);
    ident = mark != std::string_view::npos ? std::string(text.substr(0, mark)) : identifier;
    while (ident.ends_with(' '))
        ident.pop_back();
    result.ident = ident;
    return result;
}
