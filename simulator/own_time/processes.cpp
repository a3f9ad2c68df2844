#include "simulator/own_time/processes.h"

#include "simulator/own_time/task_view.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace simulator {

namespace {

// Of a child, for a wait with these options.
bool has_changed(const process &child, int options) {
    return child.has_ended ? (options & WEXITED) != 0 : (child.unreported & options) != 0;
}

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

// The kernel has given its children to another process: the board, or one that adopts them (see
// PR_SET_CHILD_SUBREAPER).
void process_table::remember_end(process &ended) {
    ended.has_ended = true;
    ended.end.reset();
    for (const auto &each : processes)
        if (each.second->parent == ended.id)
            each.second->parent = family_of_task(each.first).parent;
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

void process_table::note_stop(process &stopped) {
    stopped.is_stopped = true;
    stopped.unreported = WUNTRACED;
    changes++;
}

void process_table::note_continuation(process &continued) {
    continued.is_stopped = false;
    continued.unreported = WCONTINUED;
    changes++;
}

std::vector<process *> process_table::children_of(pid_t parent, pid_t wanted) const {
    std::vector<process *> found;
    for (const auto &[id, child] : processes)
        if (child->parent == parent && !is_reaped(*child) && is_wanted(*child, parent, wanted))
            found.push_back(child.get());
    return found;
}

// A zombie that is not waited for counts as none.
process_table::children process_table::look_for_children(pid_t parent, pid_t wanted,
                                                         int options) const {
    auto found = children::none;
    for (const process *child : children_of(parent, wanted))
        if (has_changed(*child, options))
            return children::changed;
        else if (!child->has_ended)
            found = children::unchanged;
    return found;
}

void process_table::note_report(pid_t parent, pid_t wanted, int options) {
    const std::vector<process *> all = children_of(parent, wanted);
    const auto reported =
        std::ranges::find_if(all, [&](const process *each) { return has_changed(*each, options); });
    if (reported != all.end() && !(*reported)->has_ended && (options & WNOWAIT) == 0)
        (*reported)->unreported = 0;
}

} // namespace simulator
