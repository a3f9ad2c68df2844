// What sleep_observer sees of waits until a moment of the calendar, of times, clocks and addresses
// that the kernel refuses, and of futexes.

#include <climits>
#include <linux/futex.h>
#include <mutex>
#include <poll.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <thread>

#include "tests/support/programs/observation.h"

namespace {

// The one that takes the timespec of the C library.
#ifdef SYS_futex_time64
constexpr long FUTEX_CALL = SYS_futex_time64;
#else
constexpr long FUTEX_CALL = SYS_futex;
#endif

timespec moment_in(clockid_t clock, int ms) {
    timespec moment{};
    (void)clock_gettime(clock, &moment);
    const long ns = moment.tv_nsec + ms * 1'000'000L;
    return {moment.tv_sec + ns / 1'000'000'000, ns % 1'000'000'000};
}

// -1 with the error that clock_nanosleep(2) returns.
int sleep_on(clockid_t clock, int flags, const timespec &wanted) {
    errno = clock_nanosleep(clock, flags, &wanted, nullptr);
    return errno == 0 ? 0 : -1;
}

int select_with(int descriptors, timeval limit) {
    return select(descriptors, nullptr, nullptr, nullptr, &limit);
}

// The status of a child whose wait is stopped in between: 0 if it lasted until its end.
void show_stopped_wait(const char *fact, const std::function<long()> &wait) {
    show(
        fact,
        [&] {
            const pid_t child = fork();
            if (child == 0)
                _exit(wait() == 0 || errno == ETIMEDOUT ? 0 : errno);
            return stop_and_wait_for(child);
        });
}

} // namespace

void show_calendar_waits() {
    for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_TAI})
        show("clock_nanosleep until a date",
             [&] { return sleep_on(clock, TIMER_ABSTIME, moment_in(clock, 110)); });
    sem_t none{};
    (void)sem_init(&none, 0, 0);
    const timespec limit = moment_in(CLOCK_REALTIME, 140);
    show("sem_timedwait", [&] { return sem_timedwait(&none, &limit); });
    const timespec past{1, 0};
    show("sem_timedwait until the past", [&] { return sem_timedwait(&none, &past); });
}

void show_refusals() {
    const timespec long_part{0, 1'000'000'000};
    const timespec negative{-1, 0};
    show(
        "nanosleep of too long a part", [&] { return nanosleep(&long_part, nullptr); });
    show(
        "nanosleep of a negative time", [&] { return nanosleep(&negative, nullptr); });
    show(
        "clock_nanosleep on no clock", [] { return sleep_on(99, 0, span_of(10)); });
    show("clock_nanosleep on a clock without timers",
         [] { return sleep_on(CLOCK_MONOTONIC_COARSE, 0, span_of(10)); });
    const itimerval timer{{}, {0, 1'000'000}};
    show("setitimer of too long a part", [&] { return setitimer(ITIMER_REAL, &timer, nullptr); });
    timespec time{};
    show(
        "clock_gettime of no clock", [&] { return clock_gettime(77, &time); });
    show("ppoll of too long a part", [&] { return ppoll(nullptr, 0, &long_part, nullptr); });
    auto *nowhere = reinterpret_cast<pollfd *>(8);
    show(
        "poll at a bad address", [&] { return poll(nowhere, 1, 10); });
    show(
        "select of -1 descriptors",
        [] {
            return select_with(-1, {0, 10'000});
        });
    show(
        "select of a negative time",
        [] {
            return select_with(0, {-1, 0});
        });
    show("select of a long part", [] { return select_with(0, {0, 1'100'000}); });
    sem_t none{};
    (void)sem_init(&none, 0, 0);
    show("sem_timedwait of too long a part", [&] { return sem_timedwait(&none, &long_part); });
}

void show_futexes() {
    sem_t none{};
    (void)sem_init(&none, 0, 0);
    const timespec limit = moment_in(CLOCK_REALTIME, 200);
    show_stopped_wait("sem_timedwait in which it is stopped",
                      [&] { return sem_timedwait(&none, &limit); });
    uint32_t word = 0;
    const timespec span = span_of(200);
    show_stopped_wait("futex in which it is stopped",
                      [&] { return syscall(FUTEX_CALL, &word, FUTEX_WAIT, 0, &span); });
    const int memory = memfd_create("shared", 0);
    (void)ftruncate(memory, sizeof(sem_t));
    const auto map = [&] {
        void *mapped = mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
        return static_cast<sem_t *>(mapped);
    };
    sem_t *waiting = map();
    sem_t *posting = map();
    (void)sem_init(waiting, 1, 0);
    std::thread poster([&] {
        sleep_ms(60);
        (void)sem_post(posting);
        sleep_ms(400);
    });
    const timespec end = moment_in(CLOCK_REALTIME, 300);
    show("semaphore at another address", [&] { return sem_timedwait(waiting, &end); });
    poster.join();
}
