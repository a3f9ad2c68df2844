// How the scheduler waits until threads are stopped again.
#include "simulator/own_time/scheduler.h"

#include "simulator/base/message.h"
#include "simulator/own_time/tick.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <utility>

namespace simulator {

namespace {

constexpr int64_t COMPUTING_US = 10 * US_PER_SECOND; // of processor time, without a call

} // namespace

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

void scheduler::arrive(const request &asked, thread *awaited) {
    thread *of = processes.find(asked.caller);
    if (of == nullptr) {
        strangers.push_back(asked);
        if (awaited != nullptr && awaited == vforking)
            vforking->now = thread::state::waits_for_child;
        return;
    }
    if (of == awaited)
        take_over_quick_calls(*of);
    of->asked = asked;
    of->now = thread::state::held;
    of->is_untaken = true;
}

void scheduler::look_at(thread &running) {
    pollfd polls[] = {{running.owner->end.get(), POLLIN, 0}, {running.listener, POLLIN, 0}};
    const task_state state = state_of_task(running.id);
    (void)poll(polls, std::size(polls), 0);
    const bool has_ended = polls[0].revents != 0;
    if (!has_ended && polls[1].revents != 0)
        return; // it has just been stopped
    if (has_ended || state != task_state::working)
        take_over_quick_calls(running);
    if (has_ended)
        bury(*running.owner);
    else if (state == task_state::gone)
        running.now = thread::state::gone;
    else if (state != task_state::working)
        leave_in_kernel(running, state);
    else if (is_computing_without_end(running))
        give_up(place_of_task(running.id));
}

bool scheduler::is_computing_without_end(const thread &running) {
    const int64_t used_us = processor_time_us(running.id);
    const int left_before = std::exchange(unstopped_calls_left, clock.reads_left());
    if (computing_from_us == NEVER || left_before != unstopped_calls_left)
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

} // namespace simulator
