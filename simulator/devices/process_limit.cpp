#include "simulator/devices/process_limit.h"

#include "simulator/requests/caller.h"
#include "simulator/time/clock.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <linux/sched.h>

namespace simulator {

namespace {

constexpr const char *TARGET = "processes";

// Those of the board's process namespace, ended ones included until somebody waits for them.
int processes_now() {
    const auto is_process = [](const std::filesystem::directory_entry &each) {
        return isdigit(static_cast<unsigned char>(each.path().filename().native().front())) != 0;
    };
    std::error_code gone; // a process may end meanwhile
    return static_cast<int>(
        std::ranges::count_if(std::filesystem::directory_iterator("/proc", gone), is_process));
}

} // namespace

void process_limit::count_own() {
    own = processes_now();
}

void process_limit::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "process table")
        targets.insert(TARGET);
}

bool process_limit::take_fault(const fault &wanted) {
    if (wanted.kind->id != fault_id::limit || wanted.target != TARGET)
        return false;
    limits.push_back(wanted);
    return true;
}

void process_limit::take_request(const request &asked) {
    if ((flags_of_clone(asked) & CLONE_THREAD) != 0)
        return pass_on(asked);
    const int running = processes_now() - own;
    for (const fault &each : limits)
        if (running >= each.numbers[0] && each.strikes(now_us()))
            return refuse(asked, EAGAIN);
    pass_on(asked);
}

void add_process_limit(device_set &devices) {
    devices.add<process_limit>();
}

} // namespace simulator
