#include "runtime/print.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

void print(int fd, const char *format, ...) {
    char text[PRINT_MAX];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    (void)!write(fd, text, static_cast<size_t>(std::clamp(length, 0, PRINT_MAX - 1)));
}
