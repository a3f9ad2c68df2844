#include "simulator/devices/panel/key_script.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"

#include <cctype>
#include <cstdlib>
#include <unistd.h>

namespace simulator {

namespace {

struct escape_row {
    char letter;
    char byte;
};

constexpr double PAUSE_SECONDS_MAX = 1e6;

constexpr escape_row ESCAPES[] = {
    {'e', '\033'}, {'r', '\r'}, {'n', '\n'}, {'s', ' '}, {'\\', '\\'},
};

// Reads what follows a backslash and moves `at` to its last character.
bool parse_escape(const char *&at, char &byte) {
    for (const escape_row &row : ESCAPES) {
        if (*at == row.letter) {
            byte = row.byte;
            return true;
        }
    }
    if (*at != 'x' || isxdigit(static_cast<unsigned char>(at[1])) == 0 ||
        isxdigit(static_cast<unsigned char>(at[2])) == 0)
        return false;
    const char digits[] = {at[1], at[2], '\0'};
    byte = static_cast<char>(strtol(digits, nullptr, 16));
    at += 2;
    return true;
}

bool parse_bytes(const std::string &group, std::string &bytes) {
    for (const char *at = group.c_str(); *at != '\0'; at++) {
        char byte = *at;
        if (byte == '\\' && !parse_escape(++at, byte))
            return false;
        bytes += byte;
    }
    return true;
}

bool parse_group(const std::string &group, key_step &step) {
    if (group.front() == '@')
        return read_seconds(group.substr(1), PAUSE_SECONDS_MAX, step.pause_us);
    step.pause_us = KEY_PAUSE_US;
    return parse_bytes(group, step.bytes);
}

} // namespace

bool parse_keys(const char *text, std::vector<key_step> &steps) {
    const std::string script = text;
    size_t start = 0;
    while ((start = script.find_first_not_of(' ', start)) != std::string::npos) {
        const std::string group = script.substr(start, script.find(' ', start) - start);
        steps.emplace_back();
        if (!parse_group(group, steps.back())) {
            return complain(
                "--keys: \"%s\" is neither keys, with \\e \\r \\n \\s \\\\ or \\xHH for "
                "bytes without a key, nor a pause as in @2.5",
                group.c_str());
        }
        start += group.size();
    }
    return true;
}

} // namespace simulator
