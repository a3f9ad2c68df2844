// The data of the serial tests: what is sent, and how what arrives is checked.

#pragma once

#include <cstdint>

// With a null `received` it generates: writes the data to send into `expected`, which holds 512
// bytes, and returns its length. Otherwise it verifies `length` bytes of `received` and returns 0
// for good data or the 1-based position of the first bad byte. `length` is clamped to 512.
using PatternSource = int32_t (*)(const uint8_t *received, uint8_t *expected, int32_t length);

// Sixteen ')' bytes. Any number of them verifies as good, none at all too; `expected` is not read.
int32_t paren_pattern(const uint8_t *received, uint8_t *expected, int32_t length);

// A run of sample frames from a random place of a table, 3 to 15 bytes long; in HDLC mode its first
// three bytes are a sync header. Nothing is copied from table index `length` on. Verifies against
// `expected`; nothing at all is bad.
int32_t frame_sample_pattern(const uint8_t *received, uint8_t *expected, int32_t length);

// The one pseudo-random generator, 0..32767. State 1 at start, per process, never seeded by a test;
// rand_seed completes the set.
int32_t rand_next();
void rand_seed(uint32_t value);
