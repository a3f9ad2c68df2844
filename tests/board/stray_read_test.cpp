// A read that gives nothing although the poll has reported input: the driver took it back, or an
// interrupt came first. It is no reason to wait, and no end of stale input. The test process's
// reads and naps are wrapped at link time.

#include <cerrno>
#include <sys/mman.h>
#include <sys/types.h>

#include "serial/start.h"
#include "tests/board/serial_cable.h"

namespace {

struct process_calls {
    int32_t stray_reads; // how many of the next reads give nothing
    int32_t naps;
};

process_calls *calls = nullptr; // shared with the test process

} // namespace

// With 64-bit time on a 32-bit machine the C library calls nanosleep(2) by another name.
#if __SIZEOF_LONG__ == 4
#define __real_nanosleep __real___nanosleep64
#define __wrap_nanosleep __wrap___nanosleep64
#endif
extern "C" {
ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    if (calls == nullptr || shared_word(calls->stray_reads) == 0)
        return __real_read(fd, buffer, size);
    set_shared_word(calls->stray_reads, calls->stray_reads - 1);
    errno = EAGAIN;
    return -1;
}

int __real_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *time, timespec *left) {
    if (calls != nullptr && time->tv_nsec > 2'000'000) // those of this process are shorter
        set_shared_word(calls->naps, calls->naps + 1);
    return __real_nanosleep(time, left);
}
}

namespace {

class StrayRead : public SerialCable {
protected:
    void SetUp() override {
        SerialCable::SetUp();
        void *room = mmap(nullptr, sizeof(process_calls), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(room, MAP_FAILED);
        calls = static_cast<process_calls *>(room);
    }

    void TearDown() override {
        SerialCable::TearDown();
        (void)munmap(calls, sizeof(process_calls));
        calls = nullptr;
    }
};

TEST_F(StrayRead, does_not_make_a_test_nap_while_its_port_is_there) {
    pid_t (*const starts[])() = {
        [] { return serial_loop_test(0, OWN_PORT, paren_pattern); },
        [] { return echo_test(0, OWN_PORT, 0); },
    };
    for (const auto start : starts) {
        ASSERT_GT(start(), 0);
        ASSERT_TRUE(wait_until([] { return shared_word(own().unit) == 1; }));
        set_shared_word(calls->naps, 0);
        set_shared_word(calls->stray_reads, 1);
        ASSERT_NO_FATAL_FAILURE(send_block());
        EXPECT_EQ(shared_word(calls->stray_reads), 0);
        EXPECT_EQ(shared_word(calls->naps), 0);
        end_test();
        (void)receive(0); // what was echoed
    }
}

TEST_F(StrayRead, does_not_end_the_removal_of_what_came_under_a_hold) {
    ASSERT_NO_FATAL_FAILURE(start_receiver());
    ASSERT_NO_FATAL_FAILURE(hold());
    for (int i = 0; i < 40; ++i)
        ASSERT_NO_FATAL_FAILURE(send(Bytes(8, 'U')));
    set_shared_word(calls->stray_reads, 1);
    ASSERT_TRUE(
        release_until([heard = own().errors] { return shared_word(own().errors) > heard; }));
    EXPECT_EQ(shared_word(calls->stray_reads), 0);
    EXPECT_EQ(own().read_count, 0u);
    EXPECT_EQ(own().errors2, 0);
}

} // namespace
