// How sleep_observer makes a call, interrupts it and prints what it saw.

#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <poll.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

inline volatile sig_atomic_t alarms = 0;

inline void count_alarm(int) {
    alarms = alarms + 1;
}

inline void handle_alarm(int flags) {
    struct sigaction action {};
    action.sa_handler = count_alarm;
    action.sa_flags = flags;
    (void)sigaction(SIGALRM, &action, nullptr);
}

inline void alarm_in(int ms, int period_ms = 0) {
    const itimerval timer = {{0, period_ms * 1000}, {0, ms * 1000}};
    (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

inline timespec span_of(int ms) {
    return {0, ms * 1'000'000L};
}

inline long hundredths(const std::function<void()> &work) {
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    work();
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - begin);
    return (static_cast<long>(took.count()) + 5) / 10;
}

// A call's result, as 0 or the name of its error, and how long it took.
inline void show(const char *fact, const std::function<long()> &call) {
    long result = 0;
    const long took = hundredths([&] {
        result = call();
        if (result < 0)
            result = -errno;
    });
    printf("%s: %s %ld\n", fact, result < 0 ? strerrorname_np(static_cast<int>(-result)) : "ok",
           took);
}

inline void sleep_ms(int ms) {
    const timespec span = span_of(ms);
    (void)nanosleep(&span, nullptr);
}

// Its status is the error of the sleep.
inline pid_t child_that_sleeps(int ms) {
    const pid_t child = fork();
    if (child == 0) {
        const timespec span = span_of(ms);
        _exit(nanosleep(&span, nullptr) == 0 ? 0 : errno);
    }
    return child;
}

inline pid_t child_that_polls(int ms) {
    const pid_t child = fork();
    if (child == 0)
        _exit(poll(nullptr, 0, ms) == 0 ? 0 : errno);
    return child;
}

// Stops it from 50 to 120 ms after its start. -1 with its status as errno if that is not 0.
inline int stop_and_wait_for(pid_t child) {
    int status = 0;
    sleep_ms(50);
    (void)kill(child, SIGSTOP);
    sleep_ms(70);
    (void)kill(child, SIGCONT);
    (void)waitpid(child, &status, 0);
    errno = WEXITSTATUS(status);
    return errno == 0 ? 0 : -1;
}

// In sleep_limits.cpp.
void show_calendar_waits();
void show_refusals();
void show_futexes();

// In timer_waits.cpp.
void show_posix_timers();
void show_epolls();
void show_priority_lock();

// In signal_waits.cpp.
void show_signal_waits();
void show_reports();
void show_adoption();
