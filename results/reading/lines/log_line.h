// One line of a system log taken apart: when, from whom, what. It knows the forms that rsyslog,
// busybox, journalctl and hk_board write.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "results/reading/lines/log_time.h"
#include "results/reading/lines/message_kind.h"

struct parsed_line {
    message_kind kind = message_kind::OTHER;
    int64_t time_ms = NO_TIME; // since 1970; local time if the line has no zone
    std::string_view host;     // empty if the line has none
    std::string_view ident;    // without the blanks around it
    std::string_view text;     // the message
    int32_t pid = 0;           // 0 if the line has none
};

// What has to be remembered from line to line: a traditional time has no year.
class line_parser {
public:
    // `year` of the first line with a traditional time.
    explicit line_parser(int32_t year) : year_now(year) {}

    // Takes the line apart. Views point into it and into the parser, until the next call.
    parsed_line parse(std::string_view line);

private:
    bool has_known_start(std::string_view line) const;
    void keep_start(std::string_view line, const parsed_line &parsed);
    parsed_line parse_new(std::string_view line);
    int64_t read_time(std::string_view &rest);
    int64_t read_traditional_time(std::string_view &rest);
    static std::string_view take_header(std::string_view &rest, parsed_line &line);
    void split_message(std::string_view program, std::string_view message, parsed_line &line);

    int32_t year_now;
    int32_t month_before = 0;
    std::string known_second; // its text, and the time that it means
    int64_t known_time_ms = NO_TIME;
    std::string whole_ident; // of a line that has it in two fields
    std::string known_start; // the line before up to its message, and what it means
    parsed_line known_line;
};
