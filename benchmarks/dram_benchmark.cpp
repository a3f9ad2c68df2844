// The DRAM test: a pass, its phases, and what a pass cannot do without.

#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <sys/mman.h>

#include "storage/dram_pass.h"

namespace {

constexpr uint32_t BLOCKS = 512; // of a pass: 32 MiB, more than most caches hold
constexpr uint32_t PASS_BYTES = BLOCKS * DRAM_BLOCK_BYTES;
constexpr uint32_t PAGE_BYTES = 4096;

void count_blocks(benchmark::State &state, int64_t blocks) {
    state.SetItemsProcessed(state.iterations() * blocks);
    state.SetBytesProcessed(state.iterations() * blocks * DRAM_BLOCK_BYTES);
}

// The product's pass without the 5 ms for which it holds its blocks.
void dram_pass_whole(benchmark::State &state) {
    TestRecord record = {};
    for (auto _ : state)
        release_dram_blocks(test_dram_blocks(record, PASS_BYTES));
    if (record.errors != 0)
        state.SkipWithError("bad memory, or none to be had");
    count_blocks(state, BLOCKS);
}

// The same maps and unmaps; each page is touched once, so that the kernel supplies it.
void dram_pass_floor(benchmark::State &state) {
    static std::array<uint8_t *, BLOCKS> blocks;
    for (auto _ : state) {
        uint8_t *hint = nullptr;
        for (uint8_t *&block : blocks) {
            block = static_cast<uint8_t *>(mmap(hint, DRAM_BLOCK_BYTES, PROT_READ | PROT_WRITE,
                                                MAP_SHARED | MAP_ANONYMOUS, 0, 0));
            for (uint32_t i = 0; i < DRAM_BLOCK_BYTES; i += PAGE_BYTES)
                *static_cast<volatile uint8_t *>(block + i) = DRAM_FILL;
            hint = block;
        }
        for (uint8_t *block : blocks)
            (void)munmap(block, DRAM_BLOCK_BYTES);
    }
    count_blocks(state, BLOCKS);
}

// A check that leaves at the first difference.
[[gnu::noinline]] uint32_t plain_check(const uint8_t *block) {
    for (uint32_t i = 0; i < DRAM_BLOCK_BYTES; ++i)
        if (block[i] != DRAM_FILL)
            return i;
    return DRAM_BLOCK_BYTES;
}

// The pass as it would be with that check.
void dram_pass_plain(benchmark::State &state) {
    static std::array<uint8_t *, BLOCKS> blocks;
    for (auto _ : state) {
        uint8_t *hint = nullptr;
        for (uint8_t *&block : blocks) {
            block = map_dram_block(hint);
            fill_dram_block(block);
            benchmark::DoNotOptimize(plain_check(block));
            wipe_dram_block(block);
            hint = block;
        }
        for (uint8_t *block : blocks)
            (void)munmap(block, DRAM_BLOCK_BYTES);
    }
    count_blocks(state, BLOCKS);
}

// Map and unmap alone: no page is touched.
void dram_map(benchmark::State &state) {
    for (auto _ : state)
        release_dram_blocks({map_dram_block(nullptr), DRAM_BLOCK_BYTES});
    count_blocks(state, 1);
}

// The other phases on one block that stays mapped, and so in the cache.
alignas(PAGE_BYTES) std::array<uint8_t, DRAM_BLOCK_BYTES> hot;
alignas(PAGE_BYTES) std::array<uint8_t, DRAM_BLOCK_BYTES> reference;

void dram_fill(benchmark::State &state) {
    for (auto _ : state)
        fill_dram_block(hot.data());
    count_blocks(state, 1);
}

void dram_wipe(benchmark::State &state) {
    for (auto _ : state)
        wipe_dram_block(hot.data());
    count_blocks(state, 1);
}

void dram_check(benchmark::State &state) {
    fill_dram_block(hot.data());
    for (auto _ : state)
        benchmark::DoNotOptimize(first_bad_dram_byte(hot.data()));
    count_blocks(state, 1);
}

void dram_check_plain(benchmark::State &state) {
    fill_dram_block(hot.data());
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(plain_check(hot.data()));
    }
    count_blocks(state, 1);
}

void dram_check_memcmp(benchmark::State &state) {
    fill_dram_block(hot.data());
    fill_dram_block(reference.data());
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(memcmp(hot.data(), reference.data(), DRAM_BLOCK_BYTES));
    }
    count_blocks(state, 1);
}

BENCHMARK(dram_pass_whole)->Unit(benchmark::kMillisecond);
BENCHMARK(dram_pass_floor)->Unit(benchmark::kMillisecond);
BENCHMARK(dram_pass_plain)->Unit(benchmark::kMillisecond);
BENCHMARK(dram_map)->Unit(benchmark::kMicrosecond);
BENCHMARK(dram_fill)->Unit(benchmark::kMicrosecond);
BENCHMARK(dram_wipe)->Unit(benchmark::kMicrosecond);
BENCHMARK(dram_check)->Unit(benchmark::kMicrosecond);
BENCHMARK(dram_check_plain)->Unit(benchmark::kMicrosecond);
BENCHMARK(dram_check_memcmp)->Unit(benchmark::kMicrosecond);

} // namespace
