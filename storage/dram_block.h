// The steps of the DRAM test for one block of memory: map, fill, check, wipe, link, release.
//
// The blocks of a pass form a linked list inside the blocks: the first bytes of a block are the
// address and the length of the next one, zeros in the last. They are two 32-bit words on the
// board; the address is longer on a 64-bit machine.

#pragma once

#include <cstdint>

constexpr uint32_t DRAM_BLOCK_BYTES = 65536;
constexpr uint8_t DRAM_FILL = 0xAA;

// One link of the list.
struct dram_link {
    uint8_t *block; // null ends the list
    uint32_t bytes; // length of that block
};

// Maps new memory for a block, if possible near `hint` (null: anywhere), see mmap(2). Returns null
// on failure.
uint8_t *map_dram_block(uint8_t *hint);

// Sets every byte of the block to DRAM_FILL.
void fill_dram_block(uint8_t *block);

// Reads the block from offset 0 upwards. Returns the offset of the first byte that is not
// DRAM_FILL, or of its run of 512 bytes if the byte reads right the second time. Returns
// DRAM_BLOCK_BYTES if every byte is good.
uint32_t first_bad_dram_byte(const uint8_t *block);

// Sets every byte of the block to zero, also the link at its head. Does not read them back.
void wipe_dram_block(uint8_t *block);

// Write and read the link at the head of a block.
void set_dram_link(uint8_t *block, dram_link next);
dram_link get_dram_link(const uint8_t *block);

// Unmaps the blocks of a list.
void release_dram_blocks(dram_link first);
