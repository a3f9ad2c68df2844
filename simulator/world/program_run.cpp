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
    report("/dev, /opt, /r0 and /run on the board are its own; start from another directory");
    _exit(STATUS_NO_BOARD);
}

// Rights over the machine itself. Even a board that root runs must not restart it, set its clock,
// load modules, make device nodes, reach its hardware, or administer its swap and file systems. The
// board itself keeps its rights, so the program must not trace it.
constexpr unsigned long MACHINE_RIGHTS[] = {CAP_SYS_BOOT,  CAP_SYS_TIME, CAP_SYS_MODULE,
                                            CAP_SYS_RAWIO, CAP_MKNOD,    CAP_SYS_ADMIN,
                                            CAP_SYS_PTRACE};

void drop_machine_rights() {
    for (const unsigned long right : MACHINE_RIGHTS)
        (void)prctl(PR_CAPBSET_DROP, right); // an ordinary user has none of them
}

// Runs in the child between fork and exec. The child gets its own process group but not its own
// session: the first port that a session leader opens becomes its controlling terminal.
[[noreturn]] void become_program(const program_start &how, int board) {
    (void)setpgid(0, 0);
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // a killed visitor's program ends too
    drop_machine_rights();
    enter_directory(how.directory);
    hand_over_calls(how.rules, board);
    restore_signals();
    execvp(how.arguments[0], how.arguments);
    const bool is_missing = errno == ENOENT || errno == ENOTDIR;
    (void)cannot("start", how.arguments[0]);
    if (!is_missing)
        _exit(CANNOT_EXECUTE);
    report("the program and its interpreter must be on the board's file system, where /opt and "
           "/run are empty");
    _exit(NOT_FOUND);
}

} // namespace

void hand_over_calls(const filter_rules &rules, int board) {
    const unique_fd listener = install_request_filter(rules);
    if (listener.is_open() && send_descriptor(board, listener.get()))
        return;
    if (errno == EBUSY)
        report("a board cannot run on a board");
    else
        report("the kernel refuses the request filter: %s", strerror(errno));
    _exit(STATUS_NO_BOARD);
}

bool program_run::start(const program_start &how) {
    sigset_t blocked; // what the outer process passes on, and SIGCHLD
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = SIGRTMIN; number <= SIGRTMAX; number++)
        (void)sigdelset(&blocked, number); // a device's own, see spi_memory.cpp
    signals.reset(signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK));
    int ends[2];
    // For this socket type the kernel reports the end, so a child that fails before it sends is
    // noticed.
    if (!signals.is_open() || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
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
        else
            take_signal(number);
    }
}

void program_run::take_signal(int number) {
    if (number == SIGINT && interrupted) {
        report("interrupted again; killing the program");
        kill_program(SIGNALLED + SIGKILL);
    } else if (number == SIGINT || number == SIGHUP || number == SIGTERM) {
        interrupted = interrupted || number == SIGINT;
        request_end();
    } else {
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
        report("the program did not end within %d s of SIGTERM; killing it",
               static_cast<int>(GRACE_US / US_PER_SECOND));
        kill_program(STATUS_HANG);
    } else {
        request_end();
    }
}

void program_run::request_end() {
    end_us = NEVER;
    pass_on(SIGTERM);
    if (terminal != nullptr && terminal->is_given())
        pass_on(SIGHUP); // an interactive shell ignores SIGTERM
    if (give_up_us == NEVER)
        give_up_us = now_us() + GRACE_US;
}

void program_run::end_computing(const std::string &where) {
    report("%s: the board's own time cannot pass in a loop without a call that it stops",
           where.c_str());
    kill_program(STATUS_HANG);
}

void program_run::kill_program(int its_status) {
    (void)kill(-program, SIGKILL);
    ended = true;
    status = its_status;
}

void program_run::pass_on(int number) {
    if (!ended)
        (void)kill(program, number);
    has_signalled = true;
}

void program_run::reap() {
    int how = 0;
    pid_t child = 0;
    while ((child = waitpid(-1, &how, WNOHANG | WUNTRACED)) > 0) {
        if (child != program || ended)
            continue;
        if (WIFSTOPPED(how)) {
            continue_program(WSTOPSIG(how));
        } else {
            ended = true;
            status = WIFEXITED(how) ? WEXITSTATUS(how) : SIGNALLED + WTERMSIG(how);
        }
    }
}

// Gives the terminal to a program that needs it. After that, Ctrl-Z must not stop the program: no
// shell could continue it. Any other stop is what the operator wants.
void program_run::continue_program(int stopped_by) {
    const bool wants_terminal = stopped_by == SIGTTIN || stopped_by == SIGTTOU;
    if (wants_terminal && (terminal == nullptr || !terminal->give_to(program))) {
        report("the program needs the terminal, which is the panel's, or not in the foreground");
        kill_program(SIGNALLED + stopped_by);
        return;
    }
    if (wants_terminal || (terminal != nullptr && terminal->is_given()))
        (void)kill(-program, SIGCONT);
    has_signalled = true;
}

} // namespace simulator
