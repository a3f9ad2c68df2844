#include "simulator/world/hold_release.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace simulator {

namespace {

// A successful start closes the pipe; a byte in it means that the start failed.
[[noreturn]] void become_releaser(const std::string &own_program, int failed) {
    const std::string beside = own_program.substr(0, own_program.rfind('/') + 1) + "hk_ctl";
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl(beside.c_str(), "hk_ctl", "release", "--follow", nullptr);
    execlp("hk_ctl", "hk_ctl", "release", "--follow", nullptr);
    (void)!write(failed, "", 1);
    _exit(1);
}

} // namespace

bool start_releasing(const std::string &own_program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return cannot("start", "hk_ctl");
    const unique_fd reading(ends[0]);
    unique_fd writing(ends[1]);
    const pid_t releaser = fork();
    if (releaser < 0)
        return cannot("start", "hk_ctl");
    if (releaser == 0)
        become_releaser(own_program, writing.get());
    writing.reset();
    char byte = 0;
    ssize_t count = 0;
    while ((count = read(reading.get(), &byte, 1)) < 0 && errno == EINTR) {
    }
    return count == 0 || complain("--release: hk_ctl is neither beside hk_board nor in PATH");
}

} // namespace simulator
