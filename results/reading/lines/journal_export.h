// The export format of the journal: an entry is a field a line, and a blank line ends it. A field
// whose value has line breaks or other control characters comes as its name, its length in eight
// bytes, and its value.

#pragma once

#include <string>

#include "results/reading/line_reader.h"
#include "results/reading/lines/log_line.h"

// The first field of each entry.
constexpr std::string_view JOURNAL_START = "__CURSOR=";

class journal_entry {
public:
    // Takes a line; reads the value of a binary field itself. Returns true if the line ended the
    // entry, which `line` then describes.
    bool take(std::string_view text, line_reader &reader);

    // The entry as a line of a log. Views point into this object.
    parsed_line line();

private:
    void set(std::string_view name, std::string_view value);

    std::string host;
    std::string identifier;
    std::string message;
    std::string ident;
    int64_t time_ms = NO_TIME;
    int32_t pid = 0;
    bool is_complete = false;
};
