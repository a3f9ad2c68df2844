#pragma once

constexpr int PRINT_MAX = 1024; // bytes of one text, the closing zero included

// Writes one formatted text, cut to PRINT_MAX, to a descriptor with one write(2). Ignores a
// failure: there is nowhere to report it.
void print(int fd, const char *format, ...) __attribute__((format(printf, 2, 3)));
