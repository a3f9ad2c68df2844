#include "results/reading/log_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>

namespace {

constexpr int64_t MS_PER_S = 1000;
constexpr std::string_view MESSAGE_MARK = ": ";

bool is_digit(char letter) {
    return letter >= '0' && letter <= '9';
}

// Takes a number of exactly so many digits from the start.
bool take_digits(std::string_view &rest, size_t digits, int32_t &number) {
    if (rest.size() < digits)
        return false;
    number = 0;
    for (size_t i = 0; i < digits; ++i) {
        if (!is_digit(rest[i]))
            return false;
        number = number * 10 + (rest[i] - '0');
    }
    rest.remove_prefix(digits);
    return true;
}

bool take(std::string_view &rest, char letter) {
    if (!rest.starts_with(letter))
        return false;
    rest.remove_prefix(1);
    return true;
}

bool take_any(std::string_view &rest, std::string_view letters) {
    if (rest.empty() || letters.find(rest[0]) == std::string_view::npos)
        return false;
    rest.remove_prefix(1);
    return true;
}

// Takes the text up to the next blank, and the blank.
std::string_view take_word(std::string_view &rest) {
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(word.size() + 1, rest.size()));
    return word;
}

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' '))
        text.remove_prefix(1);
    while (text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}

int64_t ms_of_date(int32_t year, int32_t month, int32_t day) {
    using namespace std::chrono;
    const sys_days date = std::chrono::year(year) / month / day;
    return int64_t{date.time_since_epoch().count()} * 24 * 3600 * MS_PER_S;
}

// Takes "01:30:51" and a fraction.
bool take_time_of_day(std::string_view &rest, int64_t &time_ms) {
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    if (!take_digits(rest, 2, hour) || !take(rest, ':') || !take_digits(rest, 2, minute) ||
        !take(rest, ':') || !take_digits(rest, 2, second))
        return false;
    time_ms = ((int64_t{hour} * 60 + minute) * 60 + second) * MS_PER_S;
    if (!take_any(rest, ".,"))
        return true;
    for (int64_t weight = 100; !rest.empty() && is_digit(rest[0]); weight /= 10) {
        time_ms += (rest[0] - '0') * weight;
        rest.remove_prefix(1);
    }
    return true;
}

// Takes "Z", "+01:00" or "+0100"; a time without a zone counts as UTC.
bool take_zone(std::string_view &rest, int64_t &time_ms) {
    if (rest.empty() || take(rest, 'Z') || rest[0] == ' ')
        return true;
    const int32_t sign = rest[0] == '-' ? -1 : 1;
    int32_t hours = 0;
    int32_t minutes = 0;
    if (!take_any(rest, "+-") || !take_digits(rest, 2, hours))
        return false;
    (void)take(rest, ':');
    if (!take_digits(rest, 2, minutes))
        return false;
    time_ms -= sign * (int64_t{hours} * 60 + minutes) * 60 * MS_PER_S;
    return true;
}

// Takes "2026-11-22T01:30:51+00:00", or with a blank between as hk_board writes it, and the blank
// that follows.
bool take_iso_time(std::string_view &rest, int64_t &time_ms) {
    int32_t year = 0;
    int32_t month = 0;
    int32_t day = 0;
    int64_t of_day = 0;
    std::string_view text = rest;
    if (!take_digits(text, 4, year) || !take(text, '-') || !take_digits(text, 2, month) ||
        !take(text, '-') || !take_digits(text, 2, day) || !take_any(text, "T ") ||
        !take_time_of_day(text, of_day) || !take_zone(text, of_day) || !take(text, ' '))
        return false;
    time_ms = ms_of_date(year, month, day) + of_day;
    rest = text;
    return true;
}

// Takes "Nov 22 01:30:51" and the blank that follows.
bool take_traditional_time(std::string_view &rest, int32_t &month, int32_t &day, int64_t &of_day) {
    constexpr std::string_view MONTHS = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t at = MONTHS.find(rest.substr(0, 3));
    std::string_view text = rest;
    if (rest.size() < 16 || at % 3 != 0 || at == std::string_view::npos || rest[3] != ' ')
        return false;
    month = static_cast<int32_t>(at / 3) + 1;
    text.remove_prefix(4);
    if (!(take(text, ' ') ? take_digits(text, 1, day) : take_digits(text, 2, day)) ||
        !take(text, ' ') || !take_time_of_day(text, of_day) || !take(text, ' '))
        return false;
    rest = text;
    return true;
}

// Takes "<14>", the priority that a message has on its way.
bool take_priority(std::string_view &rest) {
    if (!rest.starts_with('<') || rest.size() < 3 || !is_digit(rest[1]))
        return false;
    const size_t end = rest.find('>');
    if (end == std::string_view::npos || end > 4)
        return false;
    rest.remove_prefix(end + 1);
    return true;
}

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

void take_host(std::string_view &rest, parsed_line &line) {
    std::string_view text = rest;
    const std::string_view word = take_word(text);
    if (word == "Stress" && is_mac_address(text.substr(0, text.find(' '))))
        return; // a log without host names
    line.host = word;
    rest = text;
    std::string_view after = rest;
    const std::string_view level = take_word(after);
    if (memchr(level.data(), '.', level.size()) != nullptr && is_facility_and_level(level))
        rest = after;
}

// Reads "12", "12 10" and the like.
bool is_numbers(std::string_view text, size_t most) {
    size_t count = 0;
    while (!text.empty() && count < most) {
        const std::string_view word = take_word(text);
        const bool is_number =
            !word.empty() && std::ranges::all_of(word.substr(word[0] == '-' ? 1 : 0), is_digit);
        if (!is_number)
            return false;
        ++count;
    }
    return text.empty() && count > 0;
}

// "<20 stat 0 204>", "<12 10"
bool is_reply_complaint(std::string_view text) {
    std::string_view rest = text.substr(1);
    const bool is_closed = rest.ends_with('>');
    if (is_closed)
        rest.remove_suffix(1);
    const std::string_view address = take_word(rest);
    if (!is_closed)
        return is_numbers(address, 1) && is_numbers(trimmed(rest), 1);
    const std::string_view request = take_word(rest);
    return is_numbers(address, 1) && is_numbers(rest, 2) &&
           (request == "stat" || request == "set" || request == "read");
}

message_kind kind_of_tagged(std::string_view message) {
    if (message.starts_with("<LI> "))
        return message_kind::ITEM;
    const std::string_view text = trimmed(message);
    if (text == "<OL>")
        return message_kind::LIST_BEGIN;
    if (text == "</OL><P>")
        return message_kind::LIST_END;
    return is_reply_complaint(text) ? message_kind::COMPLAINT : message_kind::OTHER;
}

bool is_bracketed(std::string_view text, size_t numbers) {
    return text.size() > 1 && is_numbers(text.substr(1, text.size() - 2), numbers);
}

} // namespace

message_kind kind_of(std::string_view message) {
    if (message.empty())
        return message_kind::OTHER;
    const auto complaint_if = [](bool is_one) {
        return is_one ? message_kind::COMPLAINT : message_kind::OTHER;
    };
    switch (message[0]) {
    case '<':
        return kind_of_tagged(message);
    case 'C':
        return complaint_if(message.starts_with("Couldn't open SP"));
    case 'e':
    case 'a':
        return complaint_if(message.starts_with("eeprom too long ") ||
                            message.starts_with("a too long ") ||
                            message.starts_with("an too long "));
    case '[':
        return complaint_if(message.ends_with(']') && is_bracketed(message, 2));
    case ' ':
        return complaint_if(message.ends_with('>') && is_bracketed(message, 1));
    default:
        return message_kind::OTHER;
    }
}

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
    if (!rest.starts_with('[')) {
        (void)take_word(rest); // "-": no structured data
        return program;
    }
    const size_t end = rest.find("] ");
    rest.remove_prefix(end != std::string_view::npos ? end + 2 : rest.size());
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
    known_line.is_from_same = true;
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

int64_t time_of_line(std::string_view line, int32_t year) {
    (void)take_priority(line);
    if (line.starts_with("1 "))
        line.remove_prefix(2);
    int64_t time_ms = NO_TIME;
    int32_t month = 0;
    int32_t day = 0;
    int64_t of_day = 0;
    if (take_iso_time(line, time_ms))
        return time_ms;
    if (!take_traditional_time(line, month, day, of_day))
        return NO_TIME;
    return ms_of_date(year, month, day) + of_day;
}
