// One turn of the file copy test, without its pause.

#pragma once

#include <array>
#include <cstdint>

#include "runtime/record.h"

constexpr int32_t COPY_BLOCK_BYTES = 512;

using copy_block = std::array<uint8_t, COPY_BLOCK_BYTES>;

struct copy_files {
    int source;
    int destination;
};

// Returns the block to write: 256 bytes of 0x55, then zeros.
copy_block make_copy_block();

// Rewrites the first block of the source, then of the destination, with sync(2) after each, and
// reads both back, without a comparison. Counts in `write_count` and `read_count`. Only a transfer
// of 0 bytes is an error: a failed call counts as done.
void file_copy_turn(TestRecord &record, const copy_files &files, const copy_block &block);
