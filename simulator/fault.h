// Faults that the operator puts into the board: --fault KIND:TARGET[:NUMBER]...
// Each is offered to every device; the one that has the target takes it.
#pragma once

#include <string>
#include <vector>

namespace simulator {

enum class fault_id { flip, drop, cut, lines };

struct fault_kind {
    fault_id id;
    const char *name;
    const char *form;   // as written on the command line
    size_t numbers;     // how many numbers follow the target
    const char *device; // what can have it
    const char *meaning;
};

constexpr fault_kind FAULT_KINDS[] = {
    {fault_id::flip, "flip", "flip:PORT:N", 1, "port",
     "one bit is wrong in every Nth chunk leaving PORT"},
    {fault_id::drop, "drop", "drop:PORT:N", 1, "port", "every Nth chunk leaving PORT is lost"},
    {fault_id::cut, "cut", "cut:PORT", 0, "port", "nothing that leaves PORT arrives"},
    {fault_id::lines, "lines", "lines:PORT-PORT", 0, "cable",
     "RTS of that cable (or loop) is not wired"},
};

struct fault {
    const fault_kind *kind;
    std::string text;         // as given, for messages
    std::string target;       // a port, a cable, a module address
    std::vector<int> numbers; // each at least 1
};

// Reads one --fault argument. False when it is none, after saying on standard error which there
// are.
bool parse_fault(const char *text, fault &parsed);

// Writes the valid forms with their meanings, one a line, to descriptor `fd`.
void print_fault_kinds(int fd);

} // namespace simulator
