// The calls of the tests of memory and files, and the naps of every test.

#include "tests/calls/call_trace.h"

#include <algorithm>

#include "fio/start.h"
#include "runtime/started_tests.h"
#include "serial/start.h"
#include "storage/start.h"

namespace {

using StorageCalls = CallTrace;

TEST_F(StorageCalls, a_memory_pass_maps_three_quarters_holds_them_for_5_ms_and_unmaps_them) {
    const auto start = [] { return dram_test(0); };
    const std::string maps = "map 65536 read write shared anonymous on 0, anywhere\n"
                             "map 65536 read write shared anonymous on 0, near the last\n";
    EXPECT_EQ(joined(run(start, {{"nap 5000", 2, stop_it}})),
              "count pages\n" + maps + "nap 5000\nunmap 65536 x2\n" + maps +
                  "nap 5000\nunmap 65536 stopped x2\nnap 5000 finished\n");
}

TEST_F(StorageCalls, a_file_copy_flushes_after_each_write_and_pauses_5_ms) {
    const auto start = [] {
        file_copy_test(0, "a", "b", 0);
        return started_process(1);
    };
    const std::string block = " \"" + std::string(40, 'U') + "\"\n";
    EXPECT_EQ(joined(run(start, {{"nap 5000", 1, stop_it}})),
              "open a rw\nopen a rw create 700\nwrite a" + block +
                  "open b rw create 700\nseek b 0\nseek a 0\nwrite a" + block + "sync\nwrite b" +
                  block + R"(sync
seek b 0
seek a 0
read a 512
read b 512
nap 5000
nap 5000 finished
close b finished
close a finished
unlink a finished
unlink b finished
)");
}

TEST_F(StorageCalls,
       a_filesystem_test_keeps_the_descriptors_of_kept_files_and_leaves_its_directory) {
    std::filesystem::create_directory("kept");
    write_whole("kept/file-0003", file_bytes(512));
    const auto start = [] {
        filesystem_test(0, "kept");
        return started_process(1);
    };
    const auto all = run(start, {{"read file", 1, stop_it}});
    const auto count = [&](const char *line) {
        return std::ranges::count_if(all, [&](const auto &each) { return each.starts_with(line); });
    };
    EXPECT_EQ(count("open file-"), 16 + 16);
    EXPECT_EQ(count("close file-"), 15 + 16);
    EXPECT_EQ(count("open directory ."), 1);
    EXPECT_EQ(count("close directory"), 1);
    EXPECT_EQ(count("unlink file-000"), std::ranges::count_if(all, [](const auto &each) {
                  return each.starts_with("unlink") && each.ends_with(" stopped");
              }));
    EXPECT_EQ(count("unlink file-000"), 16);
    EXPECT_EQ(all.front(), "enter kept");
    EXPECT_EQ(all.back(), "enter /r0 finished");
}

using HeldTests = CallTrace;

TEST_F(HeldTests, under_a_hold_receiver_and_producer_nap_5_ms_and_the_others_50_ms) {
    struct {
        const char *name;
        void (*start)();
        const char *naps;
    } const cases[] = {
        {"receiver", [] { (void)serial_loop_test(0, "1", paren_pattern); }, "nap 5000 x2\n"},
        {"producer", [] { (void)producer_test(0, "1", paren_pattern); }, "nap 5000 x2\n"},
        {"fio", [] { (void)fio_loop_test(0, "5"); }, "nap 50000 x2\n"},
        {"spi", [] { (void)spi_device_test(0, 3); }, "nap 50000 x2\n"},
        {"dram", [] { (void)dram_test(0); }, "nap 50000 x2\n"},
        {"files", [] { filesystem_test(0, "."); }, "nap 50000 x2\n"},
        {"copy", [] { file_copy_test(0, "a", "b", 0); }, "nap 50000 x2\n"},
        {"echo", [] { (void)echo_test(0, "1", 0); }, "nap 50000 x2\n"},
    };
    for (const auto &c : cases) {
        const auto start_held = [&] {
            hold_it();
            c.start();
            return started_process(record_count);
        };
        const auto all = run(start_held, {{"nap", 2, stop_it}});
        EXPECT_EQ(lines_with(all, "nap"), std::string(c.naps) + "nap 5000 finished\n") << c.name;
    }
}

} // namespace
