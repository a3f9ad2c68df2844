#include "simulator/world/hold_release.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/requests/descriptor_passing.h"
#include "simulator/world/program_run.h"

#include <csignal>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

namespace simulator {

namespace {

// Beside hk_board itself, else in PATH; empty if it is nowhere.
std::string path_of_hk_ctl(const std::string &own_program) {
    std::vector<std::string> places = {own_program.substr(0, own_program.rfind('/'))};
    const char *path = getenv("PATH");
    for (const std::string &each : split(path != nullptr ? path : "", ':'))
        places.push_back(each);
    for (const std::string &each : places)
        if (const std::string found = each + "/hk_ctl"; access(found.c_str(), X_OK) == 0)
            return found;
    return "";
}

[[noreturn]] void become_releaser(const std::string &path, const filter_rules &rules, int board) {
    if (rules.own_time)
        hand_over_calls(rules, board);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl(path.c_str(), "hk_ctl", "release", "--follow", nullptr);
    _exit(1);
}

} // namespace

bool start_releasing(const std::string &own_program, const filter_rules &rules, releaser &started) {
    const std::string path = path_of_hk_ctl(own_program);
    if (path.empty())
        return complain("--release: hk_ctl is neither beside hk_board nor in PATH");
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return cannot("start", path);
    const unique_fd board_end(ends[0]);
    unique_fd releaser_end(ends[1]);
    started.id = fork();
    if (started.id < 0)
        return cannot("start", path);
    if (started.id == 0)
        become_releaser(path, rules, releaser_end.get());
    releaser_end.reset();
    started.listener = receive_descriptor(board_end.get()); // none with the machine's time
    return true;
}

} // namespace simulator
