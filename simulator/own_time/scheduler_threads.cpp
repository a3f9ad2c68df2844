// The scheduler's threads and processes: when they are stopped again, how new ones are found, and
// how they end.
#include "simulator/own_time/scheduler.h"

#include "simulator/base/message.h"
#include "simulator/own_time/tick.h"
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

constexpr int64_t COMPUTING_US = 10 * US_PER_SECOND; // of processor time, without a call

std::set<pid_t> as_set(const std::vector<pid_t> &numbers) {
    return {numbers.begin(), numbers.end()};
}

} // namespace

// Waiting until threads are stopped again.

// An open of a memory waits until the board has seen it. The memory reports it at once: the second
// tick, which ends other waits, comes some milliseconds later.
void scheduler::await_opening(const thread &of) {
    if (memories.empty())
        return;
    std::vector<pollfd> polls = {{of.listener, POLLIN, 0}};
    for (const event_source *memory : memories)
        memory->add_polls(polls);
    const auto wait = [&] {
        const tick_window window;
        return poll(polls.data(), polls.size(), -1) > 0;
    };
    if (wait() && polls[0].revents == 0)
        (void)take_events(memories, 0);
}

// False if the tick has come.
bool scheduler::receive_next(int listener, request &asked) {
    const tick_window window;
    return receive(listener, asked);
}

// False if the thread has gone, or waits in the kernel. Most threads are stopped again long before
// the second tick: only then is the look worth its price.
bool scheduler::await(thread &of) {
    of.now = thread::state::running;
    computing_from_us = NEVER;
    bool was_interrupted = false;
    while (of.now == thread::state::running) {
        request asked{};
        if (receive_next(of.listener, asked))
            arrive(asked, &of);
        else if (std::exchange(was_interrupted, true))
            look_at(of);
    }
    return of.now == thread::state::held;
}

void scheduler::arrive(const request &asked, const thread *awaited) {
    thread *of = processes.find(asked.caller);
    if (of == nullptr) {
        strangers.push_back(asked);
        if (awaited != nullptr && awaited == vforking)
            vforking->now = thread::state::waits_for_child;
        return;
    }
    of->asked = asked;
    of->now = thread::state::held;
    of->is_untaken = true;
}

void scheduler::look_at(thread &running) {
    pollfd polls[] = {{running.owner->end.get(), POLLIN, 0}, {running.listener, POLLIN, 0}};
    const task_state state = state_of_task(running.id);
    (void)poll(polls, std::size(polls), 0);
    if (polls[0].revents != 0)
        bury(*running.owner);
    else if (polls[1].revents != 0)
        return; // it has just been stopped
    else if (state == task_state::gone)
        running.now = thread::state::gone;
    else if (state != task_state::working)
        leave_in_kernel(running, state);
    else if (is_computing_without_end(running))
        give_up(place_of_task(running.id));
}

bool scheduler::is_computing_without_end(const thread &running) {
    const int64_t used_us = processor_time_us(running.id);
    if (computing_from_us == NEVER)
        computing_from_us = used_us;
    return used_us - computing_from_us > COMPUTING_US;
}

void scheduler::leave_in_kernel(thread &of, task_state state) {
    of.now = thread::state::waits_in_kernel;
    of.is_writing_out = state == task_state::sleeping && writes_to_operator(of.id);
    left.push_back(&of);
    if (state == task_state::stopped) {
        note_stop(of);
    } else if (state == task_state::traced) {
        if (!std::exchange(has_reported_trace, true))
            report("process %d is traced by another one: the board's own time cannot serve it; "
                   "--calls shows its calls",
                   static_cast<int>(of.id));
    } else if (state == task_state::sleeping) {
        if (const std::string name = unknown_sleep_of_task(of.id); !name.empty())
            note_unknown(name);
    }
}

// A process is stopped when all its threads are. Those in held calls do not notice it: their calls
// are ended, and made again when the process goes on.
void scheduler::note_stop(const thread &of) {
    bool is_last = true;
    for (const auto &[id, each] : processes.threads) {
        if (each->owner != of.owner)
            continue;
        is_last = is_last && each->now != thread::state::held &&
                  each->now != thread::state::ready && each->now != thread::state::running;
        if (each->now == thread::state::held && !each->is_untaken)
            calls.held.interrupt(id);
    }
    if (!is_last)
        return;
    processes.note_stop(*of.owner);
    has_signal = true; // SIGCHLD
}

// Those that have been woken run on until they are stopped again.
void scheduler::look_at_left() {
    for (thread *each : std::exchange(left, {})) {
        const bool is_woken = each->now == thread::state::waits_in_kernel &&
                              (state_of_task(each->id) == task_state::working ||
                               state_of_task(each->id) == task_state::gone);
        if (each->now == thread::state::waits_in_kernel && !is_woken) {
            left.push_back(each);
            continue;
        }
        if (each->owner->is_stopped) {
            processes.note_continuation(*each->owner);
            has_signal = true; // SIGCHLD
        }
        if (each->now == thread::state::held || await(*each))
            make_ready(*each);
    }
}

void scheduler::make_ready(thread &of) {
    queue.push_back(&of);
}

// Threads whose births nobody has seen: those of a visitor.
void scheduler::adopt_strangers() {
    while (!strangers.empty()) {
        const request asked = strangers.front();
        strangers.erase(strangers.begin());
        const family of = family_of_task(asked.caller);
        (void)processes.add(asked.caller, asked.listener, of.process, of.parent);
        arrive(asked, nullptr);
        thread &arrived = *processes.find(asked.caller);
        arrived.has_executed = true; // its program may be new
        make_ready(arrived);
    }
}

// Births and deaths.

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
