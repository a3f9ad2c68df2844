#include "simulator/base/message.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace simulator {

namespace {

std::string current_place; // with the colon that ends it

// One write, so that lines of several processes do not mix.
void write_line(const char *format, va_list arguments) {
    char *text = nullptr;
    if (vasprintf(&text, format, arguments) < 0)
        return; // no memory for it
    dprintf(STDERR_FILENO, "hk_board: %s%s\n", current_place.c_str(), text);
    free(text);
}

} // namespace

message_place::message_place(const std::string &place) {
    current_place = place.empty() ? "" : place + ": ";
}

message_place::~message_place() {
    current_place.clear();
}

void report(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(format, arguments);
    va_end(arguments);
}

bool complain(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(format, arguments);
    va_end(arguments);
    return false;
}

bool cannot(const char *what, const std::string &path) {
    return complain("cannot %s %s: %s", what, path.c_str(), strerror(errno));
}

} // namespace simulator
