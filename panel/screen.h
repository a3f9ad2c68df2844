// Text on the operator's terminal, placed with ANSI escape sequences.
//
// Each routine writes to standard output, unbuffered, and waits until the terminal has sent its
// bytes, see tcdrain(3). Failures are ignored and not retried: the terminal may be a pipe, or gone.
// Columns and rows are 0..255; most terminals count from 1.

#pragma once

#include <cstdint>

// Moves to a column and row, on a cleared screen if `clear` is not 0, and writes `text` unless it
// is null.
void screen_print(uint8_t clear, uint8_t column, uint8_t row, const char *text);

// Writes `text`; does nothing if it is null.
void screen_puts(const char *text);

void screen_goto(uint8_t column, uint8_t row);

// Writes the one byte at `byte`.
void screen_putc(const uint8_t *byte);

void screen_clear();
