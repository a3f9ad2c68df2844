// What sleep_observer sees of waits for chosen signals, and for children that stop, go on, or are
// adopted.

#include <sys/prctl.h>
#include <thread>

#include "tests/support/programs/observation.h"

namespace {

sigset_t set_of(int signal) {
    sigset_t set{};
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

void show_wait(const char *fact, int signal, int ms) {
    const sigset_t awaited = set_of(signal);
    const timespec span = span_of(ms);
    show(fact, [&] { return sigtimedwait(&awaited, nullptr, &span); });
}

// -1 with the status as errno if it is not `wanted`.
int wait_for(pid_t child, int options, bool (*is_wanted)(int status)) {
    int status = 0;
    const pid_t found = waitpid(child, &status, options);
    errno = found == child ? status : errno;
    return found == child && is_wanted(status) ? 0 : -1;
}

pid_t child_with_thread_that_sleeps(int ms) {
    const pid_t child = fork();
    if (child == 0) {
        std::thread(pause).detach();
        sleep_ms(ms);
        _exit(0);
    }
    return child;
}

pid_t child_that_continues(pid_t stopped, int ms) {
    const pid_t child = fork();
    if (child == 0) {
        sleep_ms(ms);
        _exit(kill(stopped, SIGCONT));
    }
    return child;
}

} // namespace

void show_signal_waits() {
    sigset_t before{};
    sigset_t blocked = set_of(SIGUSR1);
    sigaddset(&blocked, SIGCHLD);
    (void)sigprocmask(SIG_BLOCK, &blocked, &before);
    show_wait("sigtimedwait that does not wait", SIGUSR1, 0);
    (void)raise(SIGUSR1);
    show_wait("sigtimedwait of nothing with a waiting signal", SIGUSR1, 0);
    alarm_in(70);
    show_wait("sigtimedwait with the alarm of a handler", SIGUSR1, 200);
    const pid_t child = child_that_sleeps(60);
    show_wait("sigtimedwait for the end of a child", SIGCHLD, 200);
    (void)waitpid(child, nullptr, 0);
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
}

void show_reports() {
    constexpr int CHANGES = WUNTRACED | WCONTINUED;
    const auto has_stopped = [](int status) -> bool { return WIFSTOPPED(status); };
    const auto has_continued = [](int status) -> bool { return WIFCONTINUED(status); };
    const auto has_ended = [](int status) -> bool { return WIFEXITED(status); };
    const pid_t child = child_with_thread_that_sleeps(200);
    sleep_ms(50);
    (void)kill(child, SIGSTOP);
    show("wait for a stop", [&] { return wait_for(child, CHANGES, has_stopped); });
    const pid_t waker = child_that_continues(child, 90);
    show(
        "wait for a continuation", [&] { return wait_for(child, CHANGES, has_continued); });
    show("wait for the end", [&] { return wait_for(child, CHANGES, has_ended); });
    (void)waitpid(waker, nullptr, 0);
}

void show_adoption() {
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t parent = fork();
    if (parent == 0)
        _exit(child_that_sleeps(120) > 0 ? 0 : 1);
    (void)waitpid(parent, nullptr, 0);
    show("wait for an adopted child", [] { return wait(nullptr); });
}
