#include "simulator/world/namespaces.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"
#include "simulator/time/event_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>

namespace simulator {

namespace {

constexpr int PASSED_ON[] = {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGTERM, SIGTSTP};

bool is_ignored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

pid_t fork_into(uint64_t flags) {
    clone_args arguments{};
    arguments.flags = flags;
    arguments.exit_signal = SIGCHLD;
    return static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
}

bool write_text(const char *path, const char *text) {
    const unique_fd file(open(path, O_WRONLY | O_CLOEXEC));
    return file.is_open() && write(file.get(), text, strlen(text)) > 0;
}

// Makes an ordinary user root of the board, and only of the board; see user_namespaces(7).
bool become_root_inside(uid_t user, gid_t group) {
    char user_map[40];
    char group_map[40];
    snprintf(user_map, sizeof user_map, "0 %u 1", user);
    snprintf(group_map, sizeof group_map, "0 %u 1", group);
    return write_text("/proc/self/setgroups", "deny") &&
           write_text("/proc/self/uid_map", user_map) &&
           write_text("/proc/self/gid_map", group_map);
}

// Makes this process die with the outer one. An outer process that has already ended sends no
// signal, but its end of the pipe is closed.
void die_with_outer(int pipe_end) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (present_events(pipe_end, 0) != 0)
        _exit(STATUS_NO_BOARD);
}

void pass_signals(const unique_fd &signals, pid_t inside) {
    signalfd_siginfo arrived{};
    while (read(signals.get(), &arrived, sizeof arrived) == sizeof arrived) {
        const int number = static_cast<int>(arrived.ssi_signo);
        if (number != SIGCHLD)
            (void)kill(inside, number); // it may be ending just now
    }
}

} // namespace

bool kernel_is_at_least(const int (&oldest)[2], const char *who) {
    utsname kernel{};
    int version[2] = {};
    (void)uname(&kernel);
    if (sscanf(kernel.release, "%d.%d", &version[0], &version[1]) == 2 &&
        !std::ranges::lexicographical_compare(version, oldest))
        return true;
    return complain("this kernel is Linux %s: %s needs %d.%d or later", kernel.release, who,
                    oldest[0], oldest[1]);
}

void take_operator_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : PASSED_ON)
        if (number != SIGHUP ||
            !is_ignored(number)) // an ignored signal would arrive if it was blocked
            sigaddset(&signals, number);
    sigaddset(&signals, SIGCHLD);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGCHLD, SIG_DFL); // if a parent ignored it, it would hide the end of the board
    signal(SIGPIPE, SIG_IGN); // a closed standard output must not end the board
    signal(SIGTTOU, SIG_IGN); // nor a terminal that stops its background processes
}

pid_t enter_namespaces() {
    static int alive[2]; // [1] stays open in the outer process for as long as it lives
    const uid_t user = geteuid();
    const gid_t group = getegid();
    take_operator_signals();
    if (pipe2(alive, O_CLOEXEC) != 0) {
        (void)cannot("make", "a pipe");
        return -1;
    }
    bool own_users = user != 0;
    pid_t inside = fork_into(NAMESPACES | (own_users ? CLONE_NEWUSER : 0));
    if (inside < 0 && !own_users && errno == EPERM) { // root without rights, as in a container
        own_users = true;
        inside = fork_into(NAMESPACES | CLONE_NEWUSER);
    }
    if (inside < 0) {
        report("the kernel refuses the board's namespaces: %s", strerror(errno));
        report("run it as root, or allow user namespaces for ordinary users");
        return -1;
    }
    if (inside > 0) {
        (void)close(alive[0]);
        return inside;
    }
    (void)close(alive[1]);
    die_with_outer(alive[0]);
    (void)setpgid(0, 0); // the terminal's signals are for the outer process alone
    if (own_users && !become_root_inside(user, group)) {
        (void)cannot("become root of", "the board");
        _exit(STATUS_NO_BOARD);
    }
    return 0;
}

int wait_outside(pid_t inside, operator_terminal &keys, const foreground &terminal) {
    sigset_t blocked; // what is passed on, and SIGCHLD
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    const unique_fd signals(signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK));
    keys.make_raw();
    int status = 0;
    while (waitpid(inside, &status, WNOHANG) != inside) {
        std::array<pollfd, 2> polls = {{{signals.get(), POLLIN, 0}, {keys.keys(), POLLIN, 0}}};
        // The outer process has no devices and no timers: it waits only for these two.
        (void)poll(polls.data(), polls.size(), -1);
        if (polls[1].revents != 0)
            keys.pass_keys(polls[1].revents);
        pass_signals(signals, inside);
    }
    keys.restore();
    terminal.take_back();
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    report("the board itself was ended by signal %d", WTERMSIG(status));
    return STATUS_NO_BOARD;
}

} // namespace simulator
