#include "simulator/faults/fault.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace simulator {

namespace {

// The parts of "KIND:TARGET:N.N": the numbers are separated by colons or points.
std::vector<std::string> split(const char *text) {
    std::vector<std::string> parts(1);
    for (const char *at = text; *at != '\0'; at++)
        if (*at == ':' || (*at == '.' && parts.size() > 2))
            parts.emplace_back();
        else
            parts.back() += *at;
    return parts;
}

bool parse_number(const std::string &text, const number_range &range, int &number) {
    char *end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < range.least || value > range.most)
        return false;
    number = static_cast<int>(value);
    return true;
}

const fault_kind *find_kind(const std::string &name) {
    for (const fault_kind &kind : FAULT_KINDS)
        if (name == kind.name)
            return &kind;
    return nullptr;
}

bool read_parts(const std::vector<std::string> &parts, fault &parsed) {
    parsed.kind = find_kind(parts[0]);
    if (parsed.kind == nullptr || parts.size() != 2 + parsed.kind->numbers || parts[1].empty())
        return false;
    parsed.target = parts[1];
    parsed.numbers.resize(parsed.kind->numbers);
    for (size_t i = 0; i < parsed.numbers.size(); i++)
        if (!parse_number(parts[2 + i], i == 0 ? parsed.kind->first : parsed.kind->second,
                          parsed.numbers[i]))
            return false;
    return true;
}

} // namespace

bool is_fault_of(const fault &wanted, std::string_view device) {
    return wanted.kind->device == device;
}

bool parse_fault(const char *text, fault &parsed) {
    parsed.text = text;
    if (read_parts(split(text), parsed))
        return true;
    dprintf(STDERR_FILENO, "hk_board: no such fault: %s\nFaults (N is 1 or more):\n", text);
    print_fault_kinds(STDERR_FILENO);
    return false;
}

void print_fault_kinds(int fd) {
    for (const fault_kind &kind : FAULT_KINDS)
        dprintf(fd, "  %-22s %-6s %s\n", kind.form, kind.device, kind.meaning);
}

} // namespace simulator
