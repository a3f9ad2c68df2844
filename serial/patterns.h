// The data of the serial tests: generates what they send and verifies what they receive.

#pragma once

#include <cstdint>

// With a null `received` it generates: writes the data to send into `expected`, which holds 512
// bytes, and returns its length. Otherwise it verifies `length` bytes of `received` and returns 0
// for good data or the 1-based position of the first bad byte. `length` is clamped to 512.
using PatternSource = int32_t (*)(const uint8_t *received, uint8_t *expected, int32_t length);

// Sixteen ')' bytes. Any number of them is good, also none; it does not read `expected`.
int32_t paren_pattern(const uint8_t *received, uint8_t *expected, int32_t length);

// A run of sample frames from a random place of a table, 3 to 15 bytes long; in HDLC mode its first
// three bytes are a sync header. It copies nothing from table index `length` on. Verifies against
// `expected`; no bytes at all are bad.
int32_t frame_sample_pattern(const uint8_t *received, uint8_t *expected, int32_t length);

// Returns the next pseudo-random number, 0..32767. Every process has one generator with state 1 at
// start; no test seeds it.
int32_t rand_next();
void rand_seed(uint32_t value);
