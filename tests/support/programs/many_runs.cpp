// many_runs SEED RUNS SPAN_MS DROPS GRACE_MS PROGRAM [ARGUMENT ...]: runs the program RUNS times,
// one after another. Sends each run SIGUSR1 and SIGALRM, fewer than DROPS within about SPAN_MS,
// from before its start-up until its end, and one stop signal among them; no signal at all if DROPS
// is 0. Each run has its own seed: `many_runs S 1 ...` repeats run S of a longer series.
//
// A run is good if it ends by itself, with status 0 and no process left GRACE_MS later, or if one
// of the signals ended it before it began to handle them (before it printed its first line).
// many_runs then removes what the run had started. Prints one line for each bad run and the counts
// at the end. Exit status 1 if a run was bad.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int64_t LIMIT_MS = 30'000; // of a run: much longer than any run takes
constexpr int32_t SHORT_SPAN_US = 2000;
// SIGTSTP only suspends a program that does not handle it yet.
constexpr int STOP_SIGNALS[] = {SIGTERM, SIGQUIT, SIGUSR2, SIGTSTP};

struct one_run {
    uint32_t seed = 0;
    uint32_t state = 0;
    pid_t program = -1;
    int errors = -1; // its standard error
    std::string text;
    bool ended = false;
    int status = 0;
    sigset_t sent{};

    // 0 to below `end`.
    int32_t random(int32_t end) {
        state = state * 1664525U + 1013904223U; // neighbouring seeds keep similar low bits
        return static_cast<int32_t>((state >> 12) % static_cast<uint32_t>(end));
    }
};

struct counts {
    int handled = 0;
    int ended_at_start = 0;
    int bad = 0;
};

int64_t now_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

sigset_t child_signal() {
    sigset_t set;
    (void)sigemptyset(&set);
    (void)sigaddset(&set, SIGCHLD);
    return set;
}

[[noreturn]] void become_program(char **command, int errors) {
    const sigset_t blocked = child_signal();
    (void)sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    (void)setpgid(0, 0);
    (void)dup2(errors, STDERR_FILENO);
    execvp(command[0], command);
    _exit(127);
}

bool start(one_run &run, char **command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    run.program = fork();
    if (run.program == 0)
        become_program(command, ends[1]);
    (void)setpgid(run.program, run.program);
    (void)close(ends[1]);
    (void)fcntl(ends[0], F_SETFL, O_NONBLOCK);
    run.errors = ends[0];
    return run.program > 0;
}

void read_errors(one_run &run) {
    char bytes[512];
    for (ssize_t count; (count = read(run.errors, bytes, sizeof bytes)) > 0;)
        run.text.append(bytes, static_cast<size_t>(count));
}

// Waits for the time given or until the program has ended.
void wait_us(one_run &run, int32_t microseconds) {
    const timespec wait = {microseconds / 1'000'000, microseconds % 1'000'000 * 1000L};
    const sigset_t child = child_signal();
    (void)sigtimedwait(&child, nullptr, &wait);
    run.ended = run.ended || waitpid(run.program, &run.status, WNOHANG) == run.program;
}

// The pid belongs to the program until waitpid(2) has reaped it, so no other process gets the
// signal.
void send(one_run &run, int number) {
    if (run.ended)
        return;
    (void)sigaddset(&run.sent, number);
    (void)kill(run.program, number);
}

bool is_started(const one_run &run) {
    return run.text.find("proc ") != std::string::npos;
}

void await_start(one_run &run) {
    while (!run.ended && !is_started(run)) {
        wait_us(run, 100);
        read_errors(run);
    }
}

// The signals arrive at any moment of the start-up, right after it, when the tests have hardly
// begun, or later.
void rain(one_run &run, int32_t long_span_us, int32_t most_drops) {
    const int32_t kind = run.random(3);
    if (kind != 0)
        await_start(run);
    const int32_t span_us = kind == 1 ? SHORT_SPAN_US : long_span_us;
    const int32_t drops = run.random(kind == 0 ? 3 : most_drops);
    for (int32_t drop = 0; drop < drops && !run.ended; ++drop) {
        wait_us(run, run.random(std::max(span_us / drops, 1)));
        send(run, run.random(2) == 0 ? SIGUSR1 : SIGALRM);
    }
    wait_us(run, run.random(span_us));
    read_errors(run);
    send(run, STOP_SIGNALS[run.random(is_started(run) ? 4 : 3)]);
}

void await_end(one_run &run, bool goes_on_raining) {
    const int64_t latest_ms = now_ms() + LIMIT_MS;
    while (!run.ended && now_ms() < latest_ms) {
        wait_us(run, run.random(2000));
        if (goes_on_raining)
            send(run, run.random(2) == 0 ? SIGUSR1 : SIGALRM);
    }
    read_errors(run);
}

// Gives what the run has left the time to end by itself.
void await_rest(const one_run &run, int64_t grace_ms) {
    const int64_t latest_ms = now_ms() + grace_ms;
    const timespec moment = {0, 1'000'000};
    while (now_ms() < latest_ms && kill(-run.program, 0) == 0) {
        (void)waitpid(-run.program, nullptr, WNOHANG);
        (void)nanosleep(&moment, nullptr);
    }
}

// Kills and reaps whatever is left of the run. True if anything was left, even a zombie.
bool clean_up(const one_run &run) {
    const bool left = kill(-run.program, SIGKILL) == 0;
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    (void)close(run.errors);
    return left;
}

void judge(one_run &run, int64_t grace_ms, counts &all) {
    const bool handled = is_started(run);
    const bool ended = run.ended;
    if (ended)
        await_rest(run, grace_ms);
    const bool left = clean_up(run);
    const bool killed = WIFSIGNALED(run.status) && sigismember(&run.sent, WTERMSIG(run.status)) > 0;
    if (ended && killed && !handled) {
        ++all.ended_at_start;
    } else if (ended && WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0 && !left) {
        ++all.handled;
    } else {
        ++all.bad;
        dprintf(STDOUT_FILENO, "run %u: %s, status %#x, %s left, said \"%s\"\n", run.seed,
                ended ? "ended" : "did not end", static_cast<unsigned>(run.status),
                left ? "processes" : "none", run.text.c_str());
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 7 || atoi(argv[3]) < 1)
        return 2;
    const int32_t drops = atoi(argv[4]);
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1); // an emulator may refuse: the board reaps orphans then
    const sigset_t blocked = child_signal();
    (void)sigprocmask(SIG_BLOCK, &blocked, nullptr);
    counts all;
    const auto first = static_cast<uint32_t>(atol(argv[1]));
    for (uint32_t seed = first; seed < first + static_cast<uint32_t>(atol(argv[2])); ++seed) {
        one_run run;
        run.seed = run.state = seed;
        if (!start(run, argv + 6))
            return 2;
        if (drops > 0)
            rain(run, atoi(argv[3]) * 1000, drops);
        await_end(run, drops > 0);
        judge(run, atol(argv[5]), all);
    }
    dprintf(STDOUT_FILENO, "handled %d, ended at start %d, bad %d\n", all.handled,
            all.ended_at_start, all.bad);
    return all.bad == 0 ? 0 : 1;
}
