#include "runtime/record.h"

TestRecord *table_records = nullptr;
int32_t record_count = 0;

TestRecord &claim_record(record_letter letter) {
    ++record_count;
    TestRecord &record = last_claimed_record();
    record.test_letter = static_cast<int32_t>(letter);
    return record;
}

int32_t records_left() {
    return TEST_RECORDS - record_count;
}

TestRecord &last_claimed_record() {
    return table_records[record_count];
}

void record_sample(TestRecord &record, int32_t position, int32_t value) {
    record.hist[static_cast<size_t>(record.hist_next)] = {position, value};
    if (++record.hist_next >= RING_SLOTS)
        record.hist_next = 0;
}

std::array<ErrorSample, RING_SLOTS> samples_newest_first(const TestRecord &record) {
    std::array<ErrorSample, RING_SLOTS> samples;
    // The crossover test may leave hist_next above the ring: slot 7 then counts as the newest.
    int32_t slot = record.hist_next - 1;
    if (slot > RING_SLOTS - 1 || slot < 0)
        slot = RING_SLOTS - 1;
    for (ErrorSample &sample : samples) {
        sample = record.hist[static_cast<size_t>(slot)];
        slot = slot == 0 ? RING_SLOTS - 1 : slot - 1;
    }
    return samples;
}
