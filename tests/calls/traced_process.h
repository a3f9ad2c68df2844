// What the replaced calls share: the lines and the state of the traced process.

#pragma once

#include <map>
#include <span>
#include <string>

#include "tests/calls/call_trace.h"

namespace traced {

constexpr int FIRST_DEVICE = 100; // descriptor; those below are the machine's

extern traced_device *devices;
extern std::map<int, std::string> names; // of descriptors
extern int64_t now_us;

// Returns true in the process whose calls are written down.
bool is_on();

// Writes a line down and does what is to be done at this call.
void note(const std::string &line);

std::string number(int64_t value);
std::string name_of(int fd);

struct flag_name {
    int bit;
    const char *name;
};

// The names of the bits that are set, each after a blank; bits without a name as one number.
std::string names_of(int flags, std::span<const flag_name> bits);

} // namespace traced
