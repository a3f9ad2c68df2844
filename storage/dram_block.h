// What the DRAM test does with one block of memory: map, fill, check, wipe, link, release.
//
// The blocks of a pass form a list that is kept in the blocks themselves: the first bytes of a
// block hold the address and the length of the next one, zeros in the last. Two 32-bit words on the
// board, a longer address on a 64-bit machine.

#pragma once

#include <cstdint>

constexpr uint32_t DRAM_BLOCK_BYTES = 65536;
constexpr uint8_t DRAM_FILL = 0xAA;

// One step of the list.
struct dram_link {
    uint8_t *block; // null: the list ends
    uint32_t bytes; // length of that block
};

// Maps fresh memory for a block, near `hint` if the kernel likes (null: anywhere), see mmap(2).
// Returns null when there is none to be had.
uint8_t *map_dram_block(uint8_t *hint);

// Every byte of the block becomes DRAM_FILL.
void fill_dram_block(uint8_t *block);

// Reads the block from offset 0 upwards. Returns the offset of the first byte that is not
// DRAM_FILL, or of its run of 512 bytes when it reads right the second time; DRAM_BLOCK_BYTES when
// every byte is good.
uint32_t first_bad_dram_byte(const uint8_t *block);

// Every byte of the block becomes zero, the link at its head too. It is not read back.
void wipe_dram_block(uint8_t *block);

// Writes and reads the link at the head of a block.
void set_dram_link(uint8_t *block, dram_link next);
dram_link get_dram_link(const uint8_t *block);

// Gives the blocks of a list back to the system.
void release_dram_blocks(dram_link first);
