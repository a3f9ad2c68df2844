// What sleep_observer sees of waits until a moment of the calendar, and of times, clocks and
// addresses that the kernel refuses.

#include <climits>
#include <mutex>
#include <poll.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/syscall.h>

#include "tests/support/programs/observation.h"

namespace {

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
