#include "simulator/world/program_run.h"

#include "simulator/base/message.h"
#include "simulator/requests/descriptor_passing.h"
#include "simulator/requests/request_filter.h"
#include "simulator/world/namespaces.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace simulator {

namespace {

constexpr int64_t GRACE_US = 5'000'000; // from SIGTERM to giving up

// Exit statuses, as a shell reports them.
constexpr int CANNOT_EXECUTE = 126;
constexpr int NOT_FOUND = 127;
constexpr int SIGNALLED = 128; // and the number of the signal

void restore_signals() {
    sigset_t none;
    sigemptyset(&none);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGTTOU, SIG_DFL);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void enter_directory(const char *directory) {
    if (chdir(directory) == 0)
        return;
    (void)cannot("enter", directory);
    report("/opt and /run on the board are its own and empty; start from another "
           "directory");
    _exit(STATUS_NO_BOARD);
}

void hand_over_calls(std::span<const uint32_t> stopped_ioctls, int board) {
    const unique_fd listener = install_request_filter(stopped_ioctls);
    if (listener.is_open() && send_descriptor(board, listener.get()))
        return;
    report("the kernel refuses the request filter: %s", strerror(errno));
    _exit(STATUS_NO_BOARD);
}

// The child between fork and exec. A group and not a session of its own: a session leader would
// make the first port it opens its controlling terminal.
[[noreturn]] void become_program(const program_start &how, int board) {
    (void)setpgid(0, 0);
    (void)prctl(PR_CAPBSET_DROP, CAP_SYS_BOOT); // nothing on the board can restart the machine
    enter_directory(how.directory);
    hand_over_calls(how.stopped_ioctls, board);
    restore_signals();
    execvp(how.arguments[0], how.arguments);
    const int reason = errno;
    (void)cannot("start", how.arguments[0]);
    report("the program and its interpreter are looked for on the board, where /opt and "
           "/run are empty");
    _exit(reason == ENOENT || reason == ENOTDIR ? NOT_FOUND : CANNOT_EXECUTE);
}

} // namespace

bool program_run::start(const program_start &how) {
    sigset_t blocked; // what the outer process passes on, and SIGCHLD
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = SIGRTMIN; number <= SIGRTMAX; number++)
        (void)sigdelset(&blocked, number); // a device's own, see spi_memory.cpp
    signals.reset(signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK));
    int ends[2];
    if (!signals.is_open() || socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0)
        return cannot("start", how.arguments[0]);
    const unique_fd board_end(ends[0]);
    unique_fd program_end(ends[1]);
    program = fork();
    if (program < 0)
        return cannot("start", how.arguments[0]);
    if (program == 0)
        become_program(how, program_end.get());
    (void)setpgid(program, program);
    program_end.reset();
    listener = receive_descriptor(board_end.get());
    if (run_us != NEVER)
        end_us = now_us() + run_us;
    return true;
}

void program_run::add_polls(std::vector<pollfd> &polls) const {
    polls.push_back({signals.get(), POLLIN, 0});
}

void program_run::ready(const pollfd &) {
    signalfd_siginfo arrived{};
    while (read(signals.get(), &arrived, sizeof arrived) == sizeof arrived) {
        const int number = static_cast<int>(arrived.ssi_signo);
        if (number == SIGCHLD)
            reap();
        else if (number == SIGINT || number == SIGHUP)
            request_end();
        else
            pass_on(number);
    }
}

int64_t program_run::wake_time_us() const {
    return end_us < give_up_us ? end_us : give_up_us;
}

void program_run::wake(int64_t time_us) {
    if (ended) {
        end_us = give_up_us = NEVER;
    } else if (time_us >= give_up_us) {
        report("the program did not end within %d s of SIGTERM; ending everything on the "
               "board",
               static_cast<int>(GRACE_US / US_PER_SECOND));
        ended = true;
        status = STATUS_HANG;
    } else {
        request_end();
    }
}

void program_run::request_end() {
    end_us = NEVER;
    if (give_up_us == NEVER) {
        pass_on(SIGTERM);
        give_up_us = now_us() + GRACE_US;
    }
}

void program_run::pass_on(int number) {
    if (!ended)
        (void)kill(program, number);
}

void program_run::reap() {
    int how = 0;
    pid_t child = 0;
    while ((child = waitpid(-1, &how, WNOHANG)) > 0) {
        if (child == program && !ended) {
            ended = true;
            status = WIFEXITED(how) ? WEXITSTATUS(how) : SIGNALLED + WTERMSIG(how);
        }
    }
}

} // namespace simulator
