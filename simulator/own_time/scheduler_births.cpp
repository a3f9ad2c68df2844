// How the scheduler finds new threads and processes, and how they end.
#include "simulator/own_time/scheduler.h"

#include "simulator/requests/caller.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <set>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace simulator {

namespace {

std::set<pid_t> as_set(const std::vector<pid_t> &numbers) {
    return {numbers.begin(), numbers.end()};
}

} // namespace

// After a call that makes a thread or a process: whatever is new has to be stopped in its first
// call.
void scheduler::find_children(thread &parent) {
    if (parent.now == thread::state::gone) {
        find_orphans(parent.listener);
        return;
    }
    forget_gone();
    const pid_t vfork_parent = parent.now == thread::state::waits_for_child ? parent.id : 0;
    for (const pid_t id : threads_of_process(parent.owner->id))
        if (processes.find(id) == nullptr)
            admit(id, parent.listener, vfork_parent);
    for (const pid_t id : children_of_task(parent.id))
        if (processes.find_process(id) == nullptr)
            admit(id, parent.listener, vfork_parent);
}

// The parent has ended before its next call: its children are those of the board, or of another
// thread or process of the program.
void scheduler::find_orphans(int listener) {
    std::set<pid_t> threads;
    for (const auto &[id, each] : processes.processes)
        if (!each->has_ended)
            threads.merge(as_set(threads_of_process(id)));
    std::set<pid_t> orphans = as_set(children_of_task(getpid()));
    for (const pid_t id : threads)
        orphans.merge(as_set(children_of_task(id)));
    orphans.merge(threads);
    for (const pid_t id : orphans)
        if (processes.find(id) == nullptr && processes.find_process(id) == nullptr)
            admit(id, listener, 0);
}

// `vfork_parent` is the thread that waits for the execve(2) of the new one; 0: none.
void scheduler::admit(pid_t id, int listener, pid_t vfork_parent) {
    const family of = family_of_task(id);
    thread &child = processes.add(id, listener, of.process, of.parent);
    if (vfork_parent != 0)
        child.owner->vfork_parent = vfork_parent;
    const auto arrived = std::ranges::find(strangers, id, &request::caller);
    if (arrived != strangers.end()) {
        const request asked = *arrived;
        strangers.erase(arrived);
        arrive(asked, nullptr);
    }
    if (child.now == thread::state::held || await(child))
        make_ready(child);
}

// The thread is ending: waits until it has ended.
void scheduler::end(thread &of) {
    const bool is_alone = std::ranges::none_of(processes.threads, [&](const auto &each) {
        return each.second->owner == of.owner && each.second.get() != &of &&
               each.second->now != thread::state::gone;
    });
    if (of.asked.call != SYS_exit || is_alone) {
        bury(*of.owner);
        return;
    }
    while (state_of_task(of.id) != task_state::gone)
        give_way();
    of.now = thread::state::gone;
    processes.changes++;
}

void scheduler::bury(process &ended) {
    pollfd look{ended.end.get(), POLLIN, 0};
    (void)poll(&look, 1, -1);
    while (ignores_children(ended.parent) && kill(ended.id, 0) == 0)
        give_way(); // the kernel is reaping it
    processes.remember_end(ended);
    timers.forget(ended.id);
    quick.forget(ended.id);
    created_timers.forget(ended.id);
    calls.note_changed_descriptors();
    looks_everywhere = true; // the board's own children are reaped
    has_signal = true;       // SIGCHLD
    drop_gone();
    free_vfork_parent(ended);
}

// A process that starts another program loses its other threads, see execve(2).
void scheduler::drop_ended_siblings(const thread &of) {
    for (const auto &[id, each] : processes.threads)
        if (each->owner == of.owner && each.get() != &of && state_of_task(id) == task_state::gone)
            each->now = thread::state::gone;
    processes.changes++;
    drop_gone();
}

// The new program goes on under the number of the process's first thread, whichever thread has
// started it.
void scheduler::follow_execute(const thread &of) {
    thread *first = processes.find(of.owner->id);
    if (first == nullptr || first == &of || of.now != thread::state::gone)
        return;
    std::erase(queue, first);
    std::erase(left, first);
    std::erase_if(delayed, [&](const auto &each) { return each.second == first; });
    const bool is_back = first->is_untaken && is_waiting(first->asked);
    if (is_back || await(*first)) {
        first->has_executed = true;
        make_ready(*first);
    }
}

void scheduler::drop_gone() {
    calls.held.drop_gone();
    const auto is_gone = [](const thread *each) { return each->now == thread::state::gone; };
    std::erase_if(queue, is_gone);
    std::erase_if(left, is_gone);
    std::erase_if(delayed, [&](const auto &each) { return is_gone(each.second); });
}

void scheduler::note_signal() {
    has_signal = true;
    look_at_left();
    bury_killed();
}

void scheduler::bury_killed() {
    std::vector<process *> killed;
    for (const auto &[id, each] : processes.threads) {
        const bool is_stopped =
            each->now == thread::state::held || each->now == thread::state::ready;
        if (is_stopped && !each->owner->has_ended && is_killed(each->asked))
            killed.push_back(each->owner);
    }
    for (process *each : killed)
        if (!each->has_ended)
            bury(*each);
}

// The parent's next call may have come before the child's.
void scheduler::free_vfork_parent(process &child) {
    thread *parent = processes.find(std::exchange(child.vfork_parent, 0));
    if (parent == nullptr) // it has been killed
        return;
    const bool is_stopped = parent->now == thread::state::held;
    if (is_stopped || (parent->now == thread::state::waits_for_child && await(*parent)))
        make_ready(*parent);
}

void scheduler::forget_gone() {
    if (forgotten_changes == processes.changes)
        return;
    forgotten_changes = processes.changes;
    processes.forget_gone();
}

} // namespace simulator
