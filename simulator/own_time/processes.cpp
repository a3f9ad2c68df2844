#include "simulator/own_time/processes.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/syscall.h>

namespace simulator {

namespace {

constexpr pid_t BOARD = 1; // the first process of the namespace

bool is_reaped(const process &each) {
    return each.has_ended && kill(each.id, 0) != 0;
}

// 0 is the group of the caller.
bool is_wanted(const process &child, pid_t parent, pid_t wanted) {
    if (wanted > 0)
        return child.id == wanted;
    if (wanted == -1)
        return true;
    return getpgid(child.id) == (wanted == 0 ? getpgid(parent) : -wanted);
}

} // namespace

thread *process_table::find(pid_t id) const {
    const auto found = threads.find(id);
    return found != threads.end() ? found->second.get() : nullptr;
}

process *process_table::find_process(pid_t id) const {
    const auto found = processes.find(id);
    return found != processes.end() ? found->second.get() : nullptr;
}

thread &process_table::add(pid_t id, int listener, pid_t process_id, pid_t parent) {
    auto &owner = processes[process_id];
    if (owner == nullptr || owner->has_ended)
        owner = std::make_unique<process>(
            process{.id = process_id,
                    .parent = parent,
                    .end = unique_fd(static_cast<int>(syscall(SYS_pidfd_open, process_id, 0)))});
    auto &added = threads[id];
    added = std::make_unique<thread>(thread{.id = id, .owner = owner.get(), .listener = listener});
    return *added;
}

// Its children are the board's from then on.
void process_table::remember_end(process &ended) {
    ended.has_ended = true;
    ended.end.reset();
    for (const auto &each : processes)
        if (each.second->parent == ended.id)
            each.second->parent = BOARD;
    for (const auto &each : threads)
        if (each.second->owner == &ended)
            each.second->now = thread::state::gone;
    changes++;
}

void process_table::forget_gone() {
    std::erase_if(
        threads, [](const auto &each) { return each.second->now == thread::state::gone; });
    std::erase_if(processes, [](const auto &each) { return is_reaped(*each.second); });
}

process_table::children process_table::look_for_children(pid_t parent, pid_t wanted) {
    auto found = children::none;
    for (const auto &[id, child] : processes) {
        if (child->parent != parent || is_reaped(*child) || !is_wanted(*child, parent, wanted))
            continue;
        if (child->has_ended)
            return children::ended;
        found = std::max(found, child->is_stop_unreported ? children::stopped : children::alive);
    }
    return found;
}

} // namespace simulator
