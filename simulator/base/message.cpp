#include "simulator/base/message.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace simulator {

bool complain(const char *format, ...) {
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return false; // no memory for it
    dprintf(STDERR_FILENO, "hk_board: %s\n", text);
    free(text);
    return false;
}

bool cannot(const char *what, const std::string &path) {
    return complain("cannot %s %s: %s", what, path.c_str(), strerror(errno));
}

} // namespace simulator
