#include "results/reading/lines/log_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "results/reading/lines/text_parts.h"

namespace {

constexpr std::string_view MESSAGE_MARK = ": ";
constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf"; // of a message in UTF-8, RFC 5424

// The form of a board's own log: date and time separated by a blank, and no host.
bool has_no_host(std::string_view line) {
    return line.size() > 10 && line[4] == '-' && line[10] == ' ';
}

// Busybox writes facility and level after the host: "user.info".
bool is_facility_and_level(std::string_view word) {
    constexpr std::array<std::string_view, 9> LEVELS = {
        ".emerg", ".alert", ".crit", ".err", ".warn", ".warning", ".notice", ".info", ".debug"};
    return std::ranges::any_of(LEVELS,
                               [word](std::string_view level) { return word.ends_with(level); });
}

bool is_mac_address(std::string_view word) {
    return word.size() == 12 &&
           std::ranges::all_of(
               word,
               [](char letter) { return is_digit(letter) || (letter >= 'a' && letter <= 'f'); });
}

// The last ": ", before which the ident ends; std::string_view::rfind would be a slow loop.
size_t find_mark(std::string_view line) {
    for (size_t length = line.size(); length > 0;) {
        const void *colon = memrchr(line.data(), ':', length);
        if (colon == nullptr)
            break;
        length = static_cast<size_t>(static_cast<const char *>(colon) - line.data());
        if (line.substr(length).starts_with(MESSAGE_MARK))
            return length;
    }
    return std::string_view::npos;
}

// Takes "hk_stress[812]: " of the journal, which keeps the ident in the message if that has blanks.
void take_process(std::string_view &rest, parsed_line &line) {
    if (memchr(rest.data(), ']', rest.size()) == nullptr)
        return;
    const size_t end = rest.find("]: ");
    const size_t open = rest.rfind('[', end);
    if (end == std::string_view::npos || open == std::string_view::npos)
        return;
    const char *last = rest.data() + end;
    if (std::from_chars(rest.data() + open + 1, last, line.pid).ptr == last)
        rest = end + 3 < rest.size() ? rest.substr(end + 3) : rest.substr(0, open);
}

// "-", or elements in brackets with quoted values, in which a backslash hides a quote. The blank
// after the last element is not within one.
void take_structured_data(std::string_view &rest) {
    bool is_inside = false; // an element
    bool is_quoted = false;
    size_t at = 0;
    for (; at < rest.size() && (is_inside || rest[at] != ' '); ++at)
        if (rest[at] == '"')
            is_quoted = !is_quoted;
        else if (is_quoted)
            at += rest[at] == '\\' ? 1 : 0;
        else
            is_inside = rest[at] == '[' || (is_inside && rest[at] != ']');
    rest.remove_prefix(std::min(at + 1, rest.size()));
}

void take_host(std::string_view &rest, parsed_line &line) {
    std::string_view text = rest;
    const std::string_view word = take_word(text);
    if (word == "Stress" && is_mac_address(text.substr(0, text.find(' '))))
        return;                          // a log without host names
    line.host = word != "-" ? word : ""; // RFC 5424: no host is known
    rest = text;
    std::string_view after = rest;
    const std::string_view level = take_word(after);
    if (memchr(level.data(), '.', level.size()) != nullptr && is_facility_and_level(level))
        rest = after;
}

} // namespace

int64_t line_parser::read_traditional_time(std::string_view &rest) {
    int32_t month = 0;
    int32_t day = 0;
    int64_t of_day = 0;
    if (!take_traditional_time(rest, month, day, of_day))
        return NO_TIME;
    if (month_before == 12 && month == 1)
        ++year_now;
    if (month_before == 1 && month == 12)
        --year_now;
    month_before = month;
    return ms_of_date(year_now, month, day) + of_day;
}

// Most lines have the time of the line before.
int64_t line_parser::read_time(std::string_view &rest) {
    if (!known_second.empty() && rest.starts_with(known_second)) {
        rest.remove_prefix(known_second.size());
        return known_time_ms;
    }
    const std::string_view start = rest;
    int64_t time_ms = NO_TIME;
    if (!take_iso_time(rest, time_ms))
        time_ms = read_traditional_time(rest);
    known_second.assign(start.substr(0, start.size() - rest.size()));
    known_time_ms = time_ms;
    return time_ms;
}

// Takes the fields of RFC 5424 after the host; what remains is the message. Returns the program.
std::string_view line_parser::take_header(std::string_view &rest, parsed_line &line) {
    const std::string_view program = take_word(rest);
    const std::string_view process = take_word(rest);
    (void)std::from_chars(process.data(), process.data() + process.size(), line.pid);
    (void)take_word(rest); // kind of message
    take_structured_data(rest);
    if (rest.starts_with(BYTE_ORDER_MARK))
        rest.remove_prefix(BYTE_ORDER_MARK.size());
    return program;
}

// The ident may end in the message: rsyslog ends a program's name at the first blank.
void line_parser::split_message(std::string_view program, std::string_view message,
                                parsed_line &line) {
    const size_t mark = find_mark(message);
    const bool has_mark = mark != std::string_view::npos;
    line.text = has_mark ? message.substr(mark + MESSAGE_MARK.size()) : trimmed(message);
    line.kind = kind_of(line.text);
    whole_ident.assign(program);
    if (has_mark)
        whole_ident.append(" ").append(trimmed(message.substr(0, mark)));
    line.ident = whole_ident;
}

bool line_parser::has_known_start(std::string_view line) const {
    return !known_start.empty() && line.starts_with(known_start);
}

// The views of the kept line are those of the kept text.
void line_parser::keep_start(std::string_view line, const parsed_line &parsed) {
    const auto kept = [&](std::string_view part) {
        const bool is_inside =
            part.data() >= line.data() && part.data() < line.data() + line.size();
        return is_inside ? std::string_view(known_start)
                               .substr(static_cast<size_t>(part.data() - line.data()), part.size())
                         : std::string_view();
    };
    known_start.assign(line.substr(0, static_cast<size_t>(parsed.text.data() - line.data())));
    known_line = parsed;
    known_line.host = kept(parsed.host);
    known_line.ident = kept(parsed.ident);
}

// Most lines differ from the one before in the message alone.
parsed_line line_parser::parse(std::string_view line) {
    while (line.ends_with('\r'))
        line.remove_suffix(1);
    if (has_known_start(line)) {
        const std::string_view text = line.substr(known_start.size());
        const message_kind kind = kind_of(text);
        if (kind != message_kind::OTHER) {
            parsed_line result = known_line;
            result.text = text;
            result.kind = kind;
            return result;
        }
    }
    return parse_new(line);
}

parsed_line line_parser::parse_new(std::string_view line) {
    parsed_line result;
    known_start.clear();
    std::string_view rest = line;
    if (take_priority(rest) && rest.starts_with("1 ")) { // RFC 5424
        (void)take_word(rest);
        result.time_ms = read_time(rest);
        take_host(rest, result);
        split_message(take_header(rest, result), rest, result);
        return result;
    }
    const size_t mark = find_mark(rest);
    if (mark == std::string_view::npos)
        return result;
    result.text = rest.substr(mark + MESSAGE_MARK.size());
    result.kind = kind_of(result.text);
    if (result.kind == message_kind::OTHER)
        return result;
    std::string_view start = rest.substr(0, mark + MESSAGE_MARK.size());
    const bool is_without_host = has_no_host(start);
    result.time_ms = read_time(start);
    if (!is_without_host)
        take_host(start, result);
    take_process(start, result);
    result.ident =
        trimmed(start.ends_with(MESSAGE_MARK) ? start.substr(0, start.size() - 2) : start);
    keep_start(line, result);
    return result;
}
