#include "simulator/devices/hold_release.h"

#include <cstddef>
#include <sys/shm.h>

namespace simulator {

namespace {

// The segment: 50 records of 29 words, the first of them the supervisor's. Its words are in the
// program's byte order, which may not be the machine's; 0, which releases, is the same in both.
constexpr size_t RECORDS = 50;
constexpr size_t RECORD_WORDS = 29;
constexpr size_t HOLD_WORD = 27;
constexpr size_t SEGMENT_BYTES = RECORDS * RECORD_WORDS * sizeof(int32_t);

constexpr int64_t LOOK_EVERY_US = 20'000;

// The board has its segments to itself. Null when the program has not made its own yet; see
// shmctl(2) for the two Linux commands.
int32_t *attach_segment() {
    shmid_ds status{};
    const int last = shmctl(0, SHM_INFO, &status);
    for (int index = 0; index <= last; index++) {
        const int id = shmctl(index, SHM_STAT, &status);
        if (id < 0 || status.shm_segsz != SEGMENT_BYTES)
            continue;
        void *address = shmat(id, nullptr, 0);
        if (address != reinterpret_cast<void *>(-1))
            return static_cast<int32_t *>(address);
    }
    return nullptr;
}

} // namespace

bool hold_release::open_nodes() {
    next_look_us = now_us();
    return true;
}

int64_t hold_release::wake_time_us() const {
    return next_look_us;
}

void hold_release::wake(int64_t time_us) {
    next_look_us = time_us + LOOK_EVERY_US;
    if (words == nullptr)
        words = attach_segment();
    if (words == nullptr)
        return;
    for (size_t record = 1; record < RECORDS; record++) {
        volatile int32_t &hold = words[record * RECORD_WORDS + HOLD_WORD];
        if (hold != 0)
            hold = 0;
    }
}

bool release_held_tests(device_set &devices, const char *) {
    if (devices.find<hold_release>() == nullptr)
        devices.add<hold_release>();
    return true;
}

} // namespace simulator
