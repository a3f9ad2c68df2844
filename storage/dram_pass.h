// One pass of the DRAM test: it maps and tests blocks up to a limit, keeps them for a moment and
// unmaps them. Every pass maps new memory, so the kernel supplies and reclaims all of it each time.

#pragma once

#include <cstdint>

#include "runtime/record.h"
#include "storage/dram_block.h"

using dram_fill = void (*)(uint8_t *block);

// Returns the bytes of a pass on a machine with `pages` pages: three quarters of the memory size as
// a 32-bit number. 4 GiB and more wrap to a smaller pass.
uint32_t dram_pass_limit(uint64_t pages, uint64_t page_bytes);

// Maps and tests at least one block, until `limit` bytes are reached, a block cannot be mapped or a
// block is bad; the latter two add one error each. Counts each mapped block in `read_count` and
// each filled block in `write_count`. Returns the list of the blocks, all wiped. A test of this
// code can pass a `fill` that puts faults into a block.
dram_link test_dram_blocks(TestRecord &record, uint32_t limit, dram_fill fill = fill_dram_block);

// Runs a whole pass, which keeps its blocks for 5 ms.
void dram_pass(TestRecord &record, uint32_t limit, dram_fill fill = fill_dram_block);
