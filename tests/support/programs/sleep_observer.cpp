// Makes every call that sleeps, on the cabled ports 1 and 2 of the board, and prints what it saw,
// one line a fact. Times are in hundredths of a second, rounded. With the argument "semaphore",
// "profile" or "timerfd" it makes one sleep that the board's own time does not know. With "spin" it
// reads the time until two milliseconds have passed, itself and in a child, and prints how often.
// With "kernel" it waits in ways that an emulator does not hand to the kernel. With "spawn" and a
// program it starts the program and waits for its end.

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "tests/support/programs/observation.h"

namespace {

void show_sleeps() {
    timespec span = span_of(200);
    timespec left{};
    show("nanosleep", [&] { return nanosleep(&span, nullptr); });
    alarm_in(50);
    show("nanosleep with an alarm", [&] { return nanosleep(&span, &left); });
    printf("what is left: %ld\n", (left.tv_nsec + 5'000'000) / 10'000'000);
    timespec moment{};
    (void)clock_gettime(CLOCK_MONOTONIC, &moment);
    moment.tv_sec += 1;
    show("clock_nanosleep until a moment",
         [&] { return -clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr); });
    show("nanosleep of nothing", [] {
        const timespec none{};
        return nanosleep(&none, nullptr);
    });
}

void show_polls() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        return;
    pollfd look{ends[0], POLLIN, 0};
    const timespec span = span_of(150);
    show(
        "poll", [&] { return poll(&look, 1, 100); });
    show(
        "ppoll", [&] { return ppoll(&look, 1, &span, nullptr); });
    show("poll of nothing", [] { return poll(nullptr, 0, 70); });
    show(
        "select",
        [&] {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(ends[0], &set);
            timeval limit{0, 120'000};
            return select(ends[0] + 1, &set, nullptr, nullptr, &limit);
        });
    show("pselect", [&] { return pselect(0, nullptr, nullptr, nullptr, &span, nullptr); });
    alarm_in(80);
    show("poll with an alarm", [&] { return poll(&look, 1, -1); });
    std::thread writer([&] {
        const timespec later = span_of(90);
        (void)nanosleep(&later, nullptr);
        (void)!write(ends[1], "", 1);
    });
    show("poll until a write", [&] { return poll(&look, 1, -1); });
    writer.join();
}

void show_signals() {
    alarm_in(110);
    show("pause", [] { return pause(); });
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    (void)sigprocmask(SIG_BLOCK, &blocked, &before);
    alarm_in(60);
    const timespec span = span_of(100);
    show("nanosleep with a blocked alarm", [&] { return nanosleep(&span, nullptr); });
    alarms = 0;
    show("sigsuspend with a waiting alarm", [&] { return sigsuspend(&before); });
    alarm_in(130);
    show(
        "sigsuspend", [&] { return sigsuspend(&before); });
    show("sigtimedwait", [&] { return sigtimedwait(&blocked, nullptr, &span); });
    alarm_in(40);
    show("sigtimedwait with an alarm", [&] { return sigtimedwait(&blocked, nullptr, &span); });
    alarm_in(60);
    show("ppoll that lets an alarm through", [&] { return ppoll(nullptr, 0, nullptr, &before); });
    alarm_in(60);
    show("pselect that lets an alarm through",
         [&] { return pselect(0, nullptr, nullptr, nullptr, nullptr, &before); });
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    printf("alarms handled: %d\n", static_cast<int>(alarms));
}

void show_timers() {
    alarms = 0;
    alarm_in(50, 30);
    const timespec span = span_of(200);
    timespec left = span;
    while (nanosleep(&left, &left) != 0) {
    }
    printf("alarms of a period in 20: %d\n", static_cast<int>(alarms));
    alarm_in(0);
    (void)alarm(5);
    (void)sleep(2);
    printf("alarm left: %u\n", alarm(0));
}

void show_children() {
    handle_alarm(0);
    child_that_sleeps(150);
    alarm_in(70);
    show(
        "wait with an alarm", [] { return wait(nullptr); });
    show("wait again", [] { return wait(nullptr); });
    handle_alarm(SA_RESTART);
    child_that_sleeps(150);
    alarm_in(70);
    show(
        "wait with an alarm that restarts it", [] { return wait(nullptr); });
    show(
        "nanosleep during which it is stopped",
        [] { return stop_and_wait_for(child_that_sleeps(200)); });
    show("wait without a child", [] { return wait(nullptr); });
    const pid_t child = child_that_sleeps(150);
    show("waitpid that does not wait", [&] { return waitpid(child, nullptr, WNOHANG); });
    (void)kill(child, SIGKILL);
    show(
        "wait for a killed child", [&] { return waitpid(child, nullptr, 0); });
    show("system", [] { return system("sleep 0.1"); });
    handle_alarm(0);
}

void show_stopped_polls() {
    show(
        "poll during which it is stopped", [] { return stop_and_wait_for(child_that_polls(200)); });
    show("poll that ends while it is stopped",
         [] { return stop_and_wait_for(child_that_polls(100)); });
}

void show_threads() {
    std::mutex lock;
    std::condition_variable change;
    bool is_set = false;
    std::thread setter([&] {
        const timespec span = span_of(120);
        (void)nanosleep(&span, nullptr);
        const std::lock_guard guard(lock);
        is_set = true;
        change.notify_all();
    });
    printf("condition: %ld\n", hundredths([&] {
               std::unique_lock guard(lock);
               change.wait(guard, [&] { return is_set; });
           }));
    setter.join();
    printf("condition with a limit: %ld\n", hundredths([&] {
               std::unique_lock guard(lock);
               (void)change.wait_for(guard, std::chrono::milliseconds(90), [] { return false; });
           }));
    std::thread sleeper([] {
        const timespec span = span_of(80);
        (void)nanosleep(&span, nullptr);
    });
    printf("join: %ld\n", hundredths([&] { sleeper.join(); }));
    if (fork() == 0) {
        std::thread(pause).detach(); // ends with the program that it belongs to
        (void)execlp("sleep", "sleep", "0.1", nullptr);
        _exit(1);
    }
    show("program started beside a thread", [] { return wait(nullptr); });
    if (fork() == 0) {
        std::thread([] { (void)execlp("sleep", "sleep", "0.1", nullptr); }).join();
        _exit(1);
    }
    show("program started by a second thread", [] { return wait(nullptr); });
}

int open_port(const char *name) {
    const int port = open(name, O_RDWR | O_NOCTTY);
    termios settings{};
    (void)tcgetattr(port, &settings);
    cfmakeraw(&settings);
    (void)cfsetspeed(&settings, B1200);
    (void)tcsetattr(port, TCSANOW, &settings);
    return port;
}

void show_ports() {
    const int one = open_port("/dev/sp1");
    const int other = open_port("/dev/sp2");
    const std::array<char, 60> bytes{}; // half a second at 1200 bit/s
    std::array<char, 60> read_back{};
    (void)!write(one, bytes.data(), bytes.size());
    show("tcdrain", [&] { return tcdrain(one); });
    (void)tcflush(other, TCIFLUSH);
    (void)!write(one, bytes.data(), 12);
    show("read of a byte", [&] { return read(other, read_back.data(), 1); });
    alarm_in(150);
    (void)tcdrain(one);
    (void)tcflush(other, TCIFLUSH);
    show("read with an alarm", [&] { return read(other, read_back.data(), 1); });
}

// How often it reads the time until two milliseconds have passed.
int reads_of_a_spin(const std::function<int64_t()> &now_us) {
    sleep_ms(1);
    const int64_t end_us = now_us() + 2000;
    int reads = 1;
    while (now_us() < end_us)
        reads++;
    return reads;
}

void show_spins() {
    const auto monotonic_us = [] {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec * int64_t{1'000'000} + now.tv_nsec / 1000;
    };
    const auto calendar_us = [] {
        timeval now{};
        (void)gettimeofday(&now, nullptr);
        return now.tv_sec * int64_t{1'000'000} + now.tv_usec;
    };
    printf("reads of the clock: %d\n", reads_of_a_spin(monotonic_us));
    (void)fflush(stdout);
    if (fork() == 0) {
        printf("reads of the calendar in a child: %d\n", reads_of_a_spin(calendar_us));
        (void)fflush(stdout);
        _exit(0);
    }
    (void)wait(nullptr);
}

void show_start(char *program) {
    std::array<char *, 2> arguments = {program, nullptr};
    pid_t started = 0;
    show(
        "start",
        [&] {
            return -posix_spawn(&started, program, nullptr, nullptr, arguments.data(), nullptr);
        });
    show("its end", [] { return wait(nullptr); });
}

// Returns 0 if it has slept.
int sleep_unknown(std::string_view how) {
    const timespec span = span_of(20);
    if (how == "semaphore") {
        const int semaphore = semget(IPC_PRIVATE, 1, 0600);
        sembuf take{0, -1, 0};
        return semtimedop(semaphore, &take, 1, &span) != 0 && errno == EAGAIN ? 0 : 1;
    }
    if (how == "profile") {
        const itimerval timer{{}, {9, 0}};
        return setitimer(ITIMER_PROF, &timer, nullptr);
    }
    const itimerspec soon = {{}, span};
    const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
    uint64_t expired = 0;
    (void)timerfd_settime(timer, 0, &soon, nullptr);
    return read(timer, &expired, sizeof expired) == sizeof expired ? 0 : 1;
}

} // namespace

int main(int argc, char **arguments) {
    if (argc > 1 && arguments[1] == std::string_view("spin")) {
        show_spins();
        return 0;
    }
    if (argc > 1 && arguments[1] == std::string_view("kernel")) {
        show_priority_lock();
        show_adoption();
        return 0;
    }
    if (argc > 2) {
        show_start(arguments[2]);
        return 0;
    }
    if (argc > 1)
        return sleep_unknown(arguments[1]);
    handle_alarm(0);
    show_sleeps();
    show_polls();
    show_signals();
    show_timers();
    show_children();
    show_threads();
    show_ports();
    show_calendar_waits();
    show_refusals();
    show_signal_waits();
    show_reports();
    show_posix_timers();
    show_epolls();
    show_futexes();
    show_stopped_polls();
    return 0;
}
