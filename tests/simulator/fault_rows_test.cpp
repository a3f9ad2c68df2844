// The operator's faults as they are read, and how often they say that they struck.
#include "simulator/faults/fault.h"
#include "simulator/time/clock.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

namespace simulator {

namespace {

TEST(FaultRows, kinds_have_names_of_their_own_that_begin_their_forms) {
    for (const fault_kind &kind : FAULT_KINDS) {
        for (const fault_kind &other : FAULT_KINDS)
            EXPECT_EQ(&kind == &other, std::string(kind.name) == other.name) << kind.name;
        EXPECT_TRUE(std::string(kind.form).starts_with(std::string(kind.name) + ":")) << kind.form;
    }
}

// In the manual page an item of the list begins ".It Cm KIND : Ns"; one item may have two kinds.
TEST(FaultRows, are_the_ones_of_the_manual_page) {
    std::ifstream page(MANUAL_PATH);
    std::set<std::string> described;
    const std::regex item("Cm ([a-z]+) : Ns");
    for (std::string line; std::getline(page, line);)
        for (std::sregex_iterator found(line.begin(), line.end(), item), end;
             line.starts_with(".It") && found != end; ++found)
            described.insert((*found)[1]);
    std::set<std::string> kinds;
    for (const fault_kind &kind : FAULT_KINDS)
        kinds.insert(kind.name);
    EXPECT_EQ(described, kinds);
}

TEST(FaultRows, are_read_with_windows_and_rate_and_the_same_fault_collects_its_windows) {
    std::vector<fault> faults;
    ASSERT_TRUE(add_fault("stuck:20:3.4@0.5-1.25", 0, faults));
    ASSERT_TRUE(add_fault("stuck:20:3.4@2-", 0, faults));
    ASSERT_TRUE(add_fault("speed:2:-7@1-2~60", 0, faults));
    ASSERT_EQ(faults.size(), 2U);
    EXPECT_EQ(faults[0].text, "stuck:20:3.4");
    EXPECT_EQ(faults[0].numbers, (std::vector{3, 4}));
    EXPECT_EQ(faults[1].numbers, std::vector{-7});
    EXPECT_TRUE(faults[1].clock().has_rate());
    faults[0].start(1000);
    EXPECT_FALSE(faults[0].is_active(1000 + 499'999));
    EXPECT_TRUE(faults[0].is_active(1000 + 500'000));
    EXPECT_FALSE(faults[0].is_active(1000 + 1'250'000));
    EXPECT_TRUE(faults[0].is_active(1000 + 2'000'000));
    EXPECT_EQ(faults[0].next_change(0), 1000 + 500'000);
}

TEST(FaultRows, that_make_no_sense_are_refused) {
    for (const char *text :
         {"melt:2", "flip:2", "flip:2:0", "flip::1", "cut:2:1", "flip:2:1@", "flip:2:1@3",
          "flip:2:1@3-2", "flip:2:1@3-3", "flip:2:1@-2", "flip:2:1@a-b", "flip:2:1~", "flip:2:1~0",
          "flip:2:1~-1", "flip:2:1~nan", "flip:2:1~60@1-2", "cts:2:2", "speed:2:51"}) {
        std::vector<fault> faults;
        EXPECT_FALSE(add_fault(text, 0, faults)) << text;
    }
    std::vector<fault> faults;
    ASSERT_TRUE(add_fault("cut:2@1-2", 0, faults));
    EXPECT_FALSE(add_fault("cut:2", 0, faults)) << "for good and in a window";
}

TEST(FaultRows, count_their_strikes_over_all_copies) {
    std::vector<fault> faults;
    ASSERT_TRUE(add_fault("drop:2:3@1-2", 0, faults));
    const fault of_the_device = faults[0];
    faults[0].start(0);
    for (uint32_t chunk = 1; chunk <= 30; chunk++) // ten of them in the window, 11 to 20
        (void)of_the_device.strikes_nth(chunk * 100 * US_PER_MS - 50 * US_PER_MS, chunk);
    EXPECT_EQ(faults[0].strike_count(), 3U) << "chunks 12, 15 and 18";
}

} // namespace

} // namespace simulator
