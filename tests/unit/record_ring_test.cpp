#include "tests/support/table_fixture.h"

namespace {

using RecordRing = TableTest;

TEST_F(RecordRing, a_ninth_sample_takes_slot_0_again) {
    for (int i = 1; i <= 9; ++i)
        record_sample(record(1), i, 100 + i);
    EXPECT_EQ(record(1).hist_next, 1);
    EXPECT_EQ(record(1).hist[0].position, 9);
    EXPECT_EQ(record(1).hist[0].value, 109);
    EXPECT_EQ(record(1).hist[1].position, 2);
}

TEST_F(RecordRing, is_read_from_the_newest_sample_back_across_slot_0) {
    for (int32_t slot = 0; slot < RING_SLOTS; ++slot)
        record(1).hist[static_cast<size_t>(slot)] = {slot, 0};
    struct {
        int32_t hist_next;
        int32_t newest;
        int32_t fifth;
    } const cases[] = {{0, 7, 3}, {1, 0, 4}, {3, 2, 6}, {8, 7, 3}, {9, 7, 3}, {-5, 7, 3}};
    for (const auto &c : cases) {
        record(1).hist_next = c.hist_next;
        const auto samples = samples_newest_first(record(1));
        EXPECT_EQ(samples[0].position, c.newest) << "hist_next " << c.hist_next;
        EXPECT_EQ(samples[4].position, c.fifth) << "hist_next " << c.hist_next;
    }
}

} // namespace
