// storm COUNT PROGRAM [ARGUMENT ...]: runs the program, waits until it says that its tests have
// started, rains COUNT signals on it, SIGUSR1 and SIGALRM in turn at odd intervals, and ends with
// SIGTERM. Exit status: the program's, or 128 + the signal that it died of.

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

pid_t start(char **command, int errors) {
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(errors, STDERR_FILENO);
        execvp(command[0], command);
        _exit(127);
    }
    return child;
}

bool wait_for_start_line(int errors) {
    std::string text;
    char byte;
    while (text.find("numproc") == std::string::npos)
        if (read(errors, &byte, 1) != 1)
            return false;
        else
            text.push_back(byte);
    return true;
}

void rain(pid_t program, long count) {
    uint32_t state = 1;
    for (long i = 0; i < count; ++i) {
        (void)kill(program, i % 2 == 0 ? SIGUSR1 : SIGALRM);
        state = state * 1664525u + 1013904223u;
        timespec pause = {0, static_cast<long>(state >> 16) % 60000}; // up to 60 us
        (void)nanosleep(&pause, nullptr);
    }
}

} // namespace

int main(int argc, char **argv) {
    int errors[2];
    if (argc < 3 || pipe(errors) != 0)
        return 2;
    const pid_t program = start(argv + 2, errors[1]);
    (void)close(errors[1]);
    if (!wait_for_start_line(errors[0]))
        return 1;
    rain(program, atol(argv[1]));
    (void)kill(program, SIGTERM);
    int status = 0;
    (void)waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
