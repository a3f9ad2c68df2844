// One pass of the DRAM test: blocks are mapped and tested until a limit is reached, held a moment
// and given back. Every pass takes fresh memory, so the kernel supplies and reclaims it all each
// time.

#pragma once

#include <cstdint>

#include "runtime/record.h"
#include "storage/dram_block.h"

using dram_fill = void (*)(uint8_t *block);

// Bytes that a pass covers on a machine with so many pages: three quarters of the memory size as a
// 32-bit number. 4 GiB and more wrap, which makes the pass smaller.
uint32_t dram_pass_limit(uint64_t pages, uint64_t page_bytes);

// Maps and tests blocks until `limit` bytes are reached (one block at least), a block cannot be
// mapped or a block is bad; the latter two add one error each. Counts a block mapped into
// `read_count` and a block filled into `write_count`. Returns the list of the blocks, all of them
// wiped. `fill` is there for faults to be put into a block.
dram_link test_dram_blocks(TestRecord &record, uint32_t limit, dram_fill fill = fill_dram_block);

// The whole pass, the blocks held for 5 ms.
void dram_pass(TestRecord &record, uint32_t limit, dram_fill fill = fill_dram_block);
