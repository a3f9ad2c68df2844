// What sleep_observer sees of the timers of timer_create(2), of sets of epoll(7), and of a lock
// that hands its priority on.

#include <array>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <thread>

#include "tests/support/programs/observation.h"

namespace {

timer_t timer_on(clockid_t clock, sigevent *event) {
    timer_t timer{};
    (void)timer_create(clock, event, &timer);
    return timer;
}

void start(timer_t timer, int ms, int period_ms = 0) {
    const itimerspec times{span_of(period_ms), span_of(ms)};
    (void)timer_settime(timer, 0, &times, nullptr);
}

void post(sigval semaphore) {
    (void)sem_post(static_cast<sem_t *>(semaphore.sival_ptr));
}

void show_timer_with_thread() {
    sem_t done{};
    (void)sem_init(&done, 0, 0);
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_notify_function = post;
    event.sigev_value.sival_ptr = &done;
    const timer_t timer = timer_on(CLOCK_REALTIME, &event);
    start(timer, 80);
    show("timer that starts a thread", [&] { return sem_wait(&done); });
    (void)timer_delete(timer);
}

} // namespace

void show_posix_timers() {
    const timer_t timer = timer_on(CLOCK_MONOTONIC, nullptr);
    start(timer, 70);
    show("pause with a timer", [] { return pause(); });
    alarms = 0;
    start(timer, 50, 30);
    timespec left = span_of(200);
    while (nanosleep(&left, &left) != 0) {
    }
    itimerspec times{};
    (void)timer_gettime(timer, &times);
    printf("signals of a timer in 20: %d, next in %ld\n", static_cast<int>(alarms),
           (times.it_value.tv_nsec + 5'000'000) / 10'000'000);
    sigset_t blocked{};
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGALRM);
    (void)sigprocmask(SIG_BLOCK, &blocked, nullptr);
    sleep_ms(100);
    (void)sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    printf("ends of a timer that were not signalled: %d\n", timer_getoverrun(timer));
    (void)timer_delete(timer);
    show_timer_with_thread();
    show("program with a limit", [] { return system("timeout 0.5 sleep 9"); });
}

void show_epolls() {
    std::array<int, 2> ends{};
    epoll_event event{EPOLLIN, {}};
    const int set = epoll_create1(0);
    if (pipe(ends.data()) != 0 || epoll_ctl(set, EPOLL_CTL_ADD, ends[0], &event) != 0)
        return;
    const auto wait_ms = [&](int ms) { return epoll_wait(set, &event, 1, ms); };
    show("epoll_wait", [&] { return wait_ms(60); });
    alarm_in(80);
    show("epoll_wait with an alarm", [&] { return wait_ms(-1); });
    std::thread writer([&] {
        sleep_ms(90);
        (void)!write(ends[1], "", 1);
    });
    show("epoll_wait until a write", [&] { return wait_ms(-1) == 1 ? 0 : -1; });
    writer.join();
}

void show_priority_lock() {
    pthread_mutexattr_t kind{};
    (void)pthread_mutexattr_init(&kind);
    (void)pthread_mutexattr_setprotocol(&kind, PTHREAD_PRIO_INHERIT);
    pthread_mutex_t lock{};
    (void)pthread_mutex_init(&lock, &kind);
    std::thread owner([&] {
        (void)pthread_mutex_lock(&lock);
        sleep_ms(120);
        (void)pthread_mutex_unlock(&lock);
    });
    sleep_ms(50);
    show("lock of another thread", [&] { return pthread_mutex_lock(&lock); });
    owner.join();
}
