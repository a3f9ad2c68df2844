#include "storage/dram_pass.h"

#include "runtime/clock.h"

namespace {

constexpr int32_t BLOCKS_HELD_US = 5000;

// Counts one error for a bad block, for any number of wrong bytes.
bool test_block(TestRecord &record, uint8_t *block, dram_fill fill) {
    ++record.read_count;
    fill(block);
    ++record.write_count;
    const bool good = first_bad_dram_byte(block) == DRAM_BLOCK_BYTES;
    if (!good)
        ++record.errors;
    wipe_dram_block(block);
    return good;
}

} // namespace

uint32_t dram_pass_limit(uint64_t pages, uint64_t page_bytes) {
    const auto memory = static_cast<uint32_t>(pages * page_bytes);
    return memory - (memory >> 2);
}

dram_link test_dram_blocks(TestRecord &record, uint32_t limit, dram_fill fill) {
    dram_link first = {};
    uint8_t *previous = nullptr;
    uint32_t mapped = 0;
    for (bool go_on = true; go_on;) {
        uint8_t *block = map_dram_block(previous);
        if (block == nullptr) {
            ++record.errors;
            break;
        }
        mapped += DRAM_BLOCK_BYTES;
        go_on = test_block(record, block, fill) && mapped < limit;
        const dram_link link = {block, DRAM_BLOCK_BYTES};
        if (previous != nullptr)
            set_dram_link(previous, link);
        else
            first = link;
        previous = block;
    }
    return first;
}

void dram_pass(TestRecord &record, uint32_t limit, dram_fill fill) {
    const dram_link blocks = test_dram_blocks(record, limit, fill);
    sleep_us(BLOCKS_HELD_US);
    release_dram_blocks(blocks);
}
