// Faults that the operator puts into the board: --fault KIND:TARGET[:NUMBER]...
// Each is offered to every device; the one that has the target takes it.
#pragma once

#include "simulator/base/text.h"

#include <string>
#include <string_view>
#include <vector>

namespace simulator {

enum class fault_id {
    flip,
    drop,
    cut,
    pull,
    lines,
    hangup,
    stuck,
    dead,
    silent,
    late_reply,
    stray_bytes,
    long_reply,
    short_reply,
    check,
    type,
};

constexpr number_range COUNT = {1, 1'000'000'000};
constexpr number_range BYTE_INDEX = {0, 31};
constexpr number_range BIT_NUMBER = {1, 8};
constexpr number_range COMMAND = {1, 12};
constexpr number_range TYPE = {1, 255};

struct fault_kind {
    fault_id id;
    const char *name;
    const char *form;  // as written on the command line
    size_t numbers;    // how many numbers follow the target
    const char *thing; // what can have it
    const char *meaning;
    number_range first = COUNT; // of the numbers
    number_range second = COUNT;
};

constexpr fault_kind FAULT_KINDS[] = {
    {fault_id::flip, "flip", "flip:PORT:N", 1, "port",
     "one bit is wrong in every Nth chunk leaving PORT"},
    {fault_id::drop, "drop", "drop:PORT:N", 1, "port", "every Nth chunk leaving PORT is lost"},
    {fault_id::cut, "cut", "cut:PORT", 0, "port", "nothing that leaves PORT arrives"},
    {fault_id::pull, "pull", "pull:PORT:N", 1, "port", "nothing arrives after the first N chunks"},
    {fault_id::lines, "lines", "lines:PORT-PORT", 0, "cable",
     "RTS of that cable (or loop) is not wired"},
    {fault_id::hangup, "hangup", "hangup:PORT:N", 1, "port",
     "PORT goes away for good with the Nth chunk leaving or reaching it"},
    // A module is named by its address on the port, or by its SPI node.
    {fault_id::stuck, "stuck", "stuck:MODULE:BYTE.BIT", 2, "module",
     "that input always reads as set", BYTE_INDEX, BIT_NUMBER},
    {fault_id::dead, "dead", "dead:MODULE:BYTE.BIT", 2, "module", "that output drives nothing",
     BYTE_INDEX, BIT_NUMBER},
    {fault_id::silent, "silent", "silent:MODULE:C", 1, "module",
     "no reply to a command: C 1 status, 4 read, 7 set, 12 identify", COMMAND},
    {fault_id::late_reply, "late", "late:MODULE:N", 1, "module", "every Nth reply comes too late"},
    {fault_id::stray_bytes, "stray", "stray:MODULE:N", 1, "module",
     "three stray bytes before every Nth reply (sync port)"},
    {fault_id::long_reply, "long", "long:MODULE:N", 1, "module",
     "every Nth reply is two bytes too long (sync port)"},
    {fault_id::short_reply, "short", "short:MODULE:N", 1, "module",
     "every Nth reply lacks its last byte (sync port)"},
    {fault_id::check, "check", "check:MODULE:N", 1, "module",
     "the check byte of every Nth reply is wrong (SPI)"},
    {fault_id::type, "type", "type:MODULE:TYPE", 1, "module",
     "the module says that it is of another type", TYPE},
};

struct fault {
    const fault_kind *kind;
    std::string text;         // as given, for messages
    std::string target;       // a port, a cable, a module address
    std::vector<int> numbers; // each in its range
};

// Whether the fault is one that such a thing ("port", "cable", "module") can have.
bool is_fault_of(const fault &wanted, std::string_view thing);

// Reads one --fault argument. False when it is none, after saying on standard error which there
// are.
bool parse_fault(const char *text, fault &parsed);

// Writes the valid forms with their meanings, one a line, to descriptor `fd`.
void print_fault_kinds(int fd);

} // namespace simulator
