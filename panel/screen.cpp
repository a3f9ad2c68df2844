#include "panel/screen.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr size_t GOTO_MAX = 16; // "\e[255;255f" and the closing zero are 11

void put_bytes(const void *bytes, size_t count) {
    (void)!write(STDOUT_FILENO, bytes, count);
    (void)tcdrain(STDOUT_FILENO); // ENOTTY if it is no terminal: nothing to wait for
}

} // namespace

void screen_print(uint8_t clear, uint8_t column, uint8_t row, const char *text) {
    if (clear != 0)
        screen_clear();
    screen_goto(column, row);
    screen_puts(text);
}

void screen_puts(const char *text) {
    if (text != nullptr)
        put_bytes(text, strlen(text));
}

void screen_goto(uint8_t column, uint8_t row) {
    char sequence[GOTO_MAX];
    (void)snprintf(sequence, sizeof sequence, "\033[%d;%df", row, column);
    screen_puts(sequence);
}

void screen_putc(const uint8_t *byte) {
    put_bytes(byte, 1);
}

void screen_clear() {
    put_bytes("\033[2J", 4);
}
