// What hk_board itself reports to the operator, on standard error.
#pragma once

#include <string>

namespace simulator {

// For as long as it lives, every message begins with the place it is about: "FILE:LINE: ". Empty:
// none.
class message_place {
public:
    explicit message_place(const std::string &place);
    ~message_place();
    message_place(const message_place &) = delete;
    message_place &operator=(const message_place &) = delete;
};

// Writes "hk_board: " and the text as one line.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same for a check that has failed. Returns false, so that the check can end with it. The text
// says what is wrong, with the value, and what is right: "--cable 2-9: port 9: ports are ...".
bool complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Writes "hk_board: cannot WHAT PATH: reason" with the reason in errno. Returns false.
bool cannot(const char *what, const std::string &path);

} // namespace simulator
