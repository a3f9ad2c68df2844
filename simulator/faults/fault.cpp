#include "simulator/faults/fault.h"

#include "simulator/base/message.h"

#include <cstdio>
#include <unistd.h>

namespace simulator {

namespace {

// The parts of "KIND:TARGET:N.N": the numbers are separated by colons or points.
std::vector<std::string> fault_parts(const char *text) {
    std::vector<std::string> parts;
    for (const std::string &part : split(text, ':')) {
        const bool is_number = parts.size() >= 2;
        for (const std::string &piece : is_number ? split(part, '.') : std::vector{part})
            parts.push_back(piece);
    }
    return parts;
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
        if (!read_number(parts[2 + i], i == 0 ? parsed.kind->first : parsed.kind->second,
                         parsed.numbers[i]))
            return false;
    return true;
}

} // namespace

bool is_fault_of(const fault &wanted, std::string_view thing) {
    return wanted.kind->thing == thing;
}

bool parse_fault(const char *text, fault &parsed) {
    parsed.text = text;
    if (read_parts(fault_parts(text), parsed))
        return true;
    report("--fault %s: there is no such fault; faults are (N is 1 or more):", text);
    print_fault_kinds(STDERR_FILENO);
    return false;
}

void print_fault_kinds(int fd) {
    for (const fault_kind &kind : FAULT_KINDS)
        dprintf(fd, "  %-22s %-6s %s\n", kind.form, kind.thing, kind.meaning);
}

} // namespace simulator
