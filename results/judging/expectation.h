// What a command line of hk_stress should bring into the results list: the program's own option
// walk claims the records, and starts nothing.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct expected_record {
    int32_t letter = 0; // see record_letter
    int32_t kind = 0;
    int32_t unit = 0; // 0 if the line does not show it
    bool is_held = false;
    bool is_in_report = false; // has a line in the status report
    std::string option;        // "-E28"
    std::string name;          // as in the list: "sp2 loop"
};

// Reads options as a shell would: words separated by blanks, quotes and backslashes. Throws
// std::invalid_argument with what is wrong.
std::vector<expected_record> expect(const std::string &options);
