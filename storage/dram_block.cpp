#include "storage/dram_block.h"

#include <cstring>
#include <sys/mman.h>

namespace {

constexpr uint32_t RUN_BYTES = 512;
constexpr uint32_t FILL_WORD = 0x01010101u * DRAM_FILL;
static_assert(DRAM_BLOCK_BYTES % RUN_BYTES == 0 && RUN_BYTES % sizeof FILL_WORD == 0);

// Makes the compiler assume that memory has changed. Otherwise it could compute the check from the
// fill before it, or drop a fill before a wipe, and nothing would test the DRAM.
void forget_memory(const void *block) {
    asm volatile("" : : "r"(block) : "memory");
}

// The compiler does not vectorise a loop that leaves at the first difference. This one combines the
// differences of a run with "or", a word at a time, which is also fast without vectors.
bool run_is_good(const uint8_t *run) {
    uint32_t differences = 0;
    for (uint32_t i = 0; i < RUN_BYTES; i += sizeof FILL_WORD) {
        uint32_t word;
        memcpy(&word, run + i, sizeof word);
        differences |= word ^ FILL_WORD;
    }
    return differences == 0;
}

} // namespace

uint8_t *map_dram_block(uint8_t *hint) {
    void *block =
        mmap(hint, DRAM_BLOCK_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, 0, 0);
    return block == MAP_FAILED ? nullptr : static_cast<uint8_t *>(block);
}

void fill_dram_block(uint8_t *block) {
    memset(block, DRAM_FILL, DRAM_BLOCK_BYTES);
    forget_memory(block);
}

uint32_t first_bad_dram_byte(const uint8_t *block) {
    forget_memory(block);
    uint32_t offset = 0;
    while (offset < DRAM_BLOCK_BYTES && run_is_good(block + offset))
        offset += RUN_BYTES;
    if (offset == DRAM_BLOCK_BYTES)
        return offset;
    for (uint32_t i = offset; i < offset + RUN_BYTES; ++i)
        if (block[i] != DRAM_FILL)
            return i;
    return offset; // now it reads right, but it was wrong before
}

void wipe_dram_block(uint8_t *block) {
    memset(block, 0, DRAM_BLOCK_BYTES);
    forget_memory(block);
}

void set_dram_link(uint8_t *block, dram_link next) {
    memcpy(block, &next.block, sizeof next.block);
    memcpy(block + sizeof next.block, &next.bytes, sizeof next.bytes);
}

dram_link get_dram_link(const uint8_t *block) {
    dram_link next;
    memcpy(&next.block, block, sizeof next.block);
    memcpy(&next.bytes, block + sizeof next.block, sizeof next.bytes);
    return next;
}

void release_dram_blocks(dram_link first) {
    while (first.block != nullptr) {
        const dram_link next = get_dram_link(first.block);
        (void)munmap(first.block, first.bytes);
        first = next;
    }
}
