// Text on the operator's terminal, placed with ANSI escape sequences.
//
// Everything goes to standard output, unbuffered, and each routine waits until the terminal has
// taken its bytes, see tcdrain(3). Whatever fails is ignored and nothing is written twice: the
// terminal may be a pipe, or gone. Columns and rows, 0..255, go out as they are; most terminals
// count from 1.

#pragma once

#include <cstdint>

// Writes `text` at a place, on a cleared screen if `clear` is not 0. A null text only moves there.
void screen_print(uint8_t clear, uint8_t column, uint8_t row, const char *text);

// Writes `text`; a null text is nothing at all.
void screen_puts(const char *text);

void screen_goto(uint8_t column, uint8_t row);

// Writes the one byte at `byte`.
void screen_putc(const uint8_t *byte);

void screen_clear();
