// hk_board's own messages to the operator, on standard error.
#pragma once

#include <string>

namespace simulator {

// While one exists, every message begins with its place, "FILE:LINE: ". An empty place adds
// nothing.
class message_place {
public:
    explicit message_place(const std::string &place);
    ~message_place();
    message_place(const message_place &) = delete;
    message_place &operator=(const message_place &) = delete;
};

// Writes "hk_board: " and the text as one line.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same for a failed check. Returns false, which the check can return. The text says what is
// wrong, with the value, and what is right: "--cable 2-9: port 9: ports are ...".
bool complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Writes "hk_board: cannot WHAT PATH: reason" with the reason from errno. Returns false.
bool cannot(const char *what, const std::string &path);

} // namespace simulator
