// What each test does at a hold and at its end, call by call: its naps and what it releases, with
// the markers that its records hold at that moment. The calls are wrapped at link time.

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "fio/fio_loop.h"
#include "fio/spi/spi_device.h"
#include "fio/spi/spi_loop.h"
#include "runtime/runner.h"
#include "runtime/started_tests.h"
#include "serial/producer.h"
#include "serial/receiver.h"
#include "storage/dram.h"
#include "storage/file_copy.h"
#include "storage/files.h"
#include "supervisor/run_loop.h"
#include "tests/support/scratch_directory.h"

namespace {

constexpr size_t CALLS_KEPT = 1000;

struct call {
    const char *name; // the same address in the test process
    int32_t nap_us;
    int32_t first_pid;
    int32_t second_pid;
    int32_t hold;
};

struct call_trace {
    size_t count;
    call calls[CALLS_KEPT];
};

call_trace *trace = nullptr; // shared with the test process
pid_t test_runner = 0;

void note(const char *name, int32_t nap_us = 0) {
    if (trace == nullptr || getpid() == test_runner || trace->count == CALLS_KEPT)
        return;
    const auto &records = status_table->records;
    trace->calls[trace->count] = {name, nap_us, records[1].pid, records[2].pid, records[1].hold};
    ++trace->count;
}

} // namespace

extern "C" {
int __real_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *wanted, timespec *left) {
    note("nap", static_cast<int32_t>(wanted->tv_sec * 1000000 + wanted->tv_nsec / 1000));
    return __real_nanosleep(wanted, left);
}
int __real_close(int);
int __wrap_close(int);
int __wrap_close(int fd) {
    note("close");
    return __real_close(fd);
}
int __real_unlink(const char *);
int __wrap_unlink(const char *);
int __wrap_unlink(const char *path) {
    note("unlink");
    return __real_unlink(path);
}
int __real_rmdir(const char *);
int __wrap_rmdir(const char *);
int __wrap_rmdir(const char *path) {
    note("rmdir");
    return __real_rmdir(path);
}
}

namespace {

const char *marker(int32_t pid) {
    return pid == PID_STOP ? " stopped" : pid == PID_FINISHED ? " finished" : "";
}

class Runner : public ScratchDirectoryTest {
protected:
    void SetUp() override {
        ScratchDirectoryTest::SetUp();
        void *room = mmap(nullptr, sizeof(call_trace), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(room, MAP_FAILED);
        trace = static_cast<call_trace *>(room);
        test_runner = getpid();
    }

    void TearDown() override {
        (void)munmap(trace, sizeof(call_trace));
        trace = nullptr;
        ScratchDirectoryTest::TearDown();
    }

    static void start_held_test(void (*start)()) {
        record(1).hold = HOLD_REQUESTED;
        start();
        if (getpid() != test_runner)
            _exit(1); // a set-up that fails brings the test process back
        ASSERT_TRUE(wait_until([] { return held_nap_us() != 0; }));
    }

    static void start_afresh() {
        *status_table = {};
        record_count = 0;
        *trace = {};
    }

    // Of the first nap under a hold that the test has acknowledged; 0 before that.
    static int32_t held_nap_us() {
        for (size_t i = 0; i < trace->count; ++i)
            if (trace->calls[i].nap_us != 0 && trace->calls[i].hold == HOLD_ACKNOWLEDGED)
                return trace->calls[i].nap_us;
        return 0;
    }

    // The calls of a test that has been stopped, those in a row that are alike as one.
    static std::vector<std::string> end_of_test() {
        std::vector<std::string> steps;
        for (size_t i = 0; i < trace->count; ++i) {
            const call &each = trace->calls[i];
            if (each.first_pid > 0 || each.first_pid == PID_NONE || each.nap_us == 50000)
                continue; // a stop may come while the test looks at its hold word
            std::string step = each.name;
            if (each.nap_us != 0)
                step.append(" ").append(std::to_string(each.nap_us));
            step.append(marker(each.first_pid)).append(marker(each.second_pid));
            if (steps.empty() || steps.back() != step)
                steps.push_back(step);
        }
        return steps;
    }
};

TEST_F(Runner, receiver_and_producer_nap_5_ms_under_a_hold_and_the_others_50_ms) {
    struct {
        void (*start)();
        int32_t nap_us;
    } const cases[] = {
        {[] { (void)serial_loop_test(0, "9none", paren_pattern); }, 5000},
        {[] { (void)producer_test(0, "9none", paren_pattern); }, 5000},
        {[] { (void)fio_loop_test(0, "9none"); }, 50000},
        {[] { (void)spi_fio_loop_test(0, "/dev/null"); }, 50000},
        {[] { (void)spi_device_test(0, 3); }, 50000},
        {[] { (void)dram_test(0); }, 50000},
        {[] { filesystem_test(0, "."); }, 50000},
        {[] { file_copy_test(0, "a", "b", 0); }, 50000},
    };
    for (const auto &c : cases) {
        start_held_test(c.start);
        EXPECT_EQ(held_nap_us(), c.nap_us) << static_cast<char>(record(1).test_letter);
        EXPECT_EQ(stop(), 2);
        start_afresh();
    }
}

TEST_F(Runner, a_test_naps_5_ms_after_its_mark_except_for_spi_fio_which_naps_before_it) {
    using steps = std::vector<std::string>;
    struct {
        void (*start)();
        steps end;
    } const cases[] = {
        {[] { (void)spi_device_test(0, 3); }, {"nap 5000 finished"}},
        {[] { (void)spi_fio_loop_test(0, "/dev/null"); }, {"nap 5000 stopped", "close finished"}},
        {[] { (void)fio_loop_test(0, "9none"); }, {"nap 5000 finished finished"}},
        {[] { filesystem_test(0, "made"); },
         {"unlink stopped", "nap 5000 finished", "rmdir finished"}},
        {[] { file_copy_test(0, "a", "b", 0); },
         {"nap 5000 finished", "close finished", "unlink finished"}},
    };
    for (const auto &c : cases) {
        start_held_test(c.start);
        for (int i = 1; i <= record_count; ++i)
            EXPECT_EQ(record(i).pid, started_process(record_count));
        EXPECT_EQ(stop(), 2);
        EXPECT_EQ(end_of_test(), c.end) << static_cast<char>(record(1).test_letter);
        EXPECT_EQ(record(1).pid, PID_FINISHED);
        start_afresh();
    }
}

// Gives up in its first turn. The supervisor's wait fails at that moment.
struct giver_up {
    TestRecord &record;
    bool gave_up = false;
    int32_t turns = 0;

    void turn() {
        give_up(*this);
        if (++turns == 1)
            reap_records(-1);
    }
};

TEST_F(Runner, a_test_that_gave_up_ends_although_the_supervisor_has_overwritten_its_stop_word) {
    process_count = 1;
    giver_up test = {record(1)};
    EXPECT_TRUE(runner_detail::run_test(test));
    EXPECT_EQ(test.turns, 1);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
}

} // namespace
