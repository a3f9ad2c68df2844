#include "simulator/time/scheduler.h"

#include "simulator/base/message.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/request_filter.h"
#include "simulator/time/child_calls.h"
#include "simulator/time/clock_calls.h"
#include "simulator/time/clock_stub.h"
#include "simulator/time/sleeping_calls.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <linux/sched.h>
#include <sched.h>
#include <sys/syscall.h>

namespace simulator {

namespace {

constexpr int CALLS_AT_ONCE = 1000;
constexpr int64_t SPIN_COST_US = 1;
constexpr long TICK_NS = 2'000'000;
constexpr int64_t COMPUTING_US = 10 * US_PER_SECOND; // of processor time, without a call

bool is_vfork(const request &asked) {
#ifdef SYS_vfork
    if (asked.call == SYS_vfork)
        return true;
#endif
    return (flags_of_clone(asked) & CLONE_VFORK) != 0;
}

bool is_birth(const request &asked) {
    const timed_call *row = find_timed_call(asked.call);
    return row != nullptr && row->kind == timed_kind::birth;
}

volatile sig_atomic_t has_ticked = 0;

void take_tick(int) {
    has_ticked = 1;
}

// Interrupts the board's wait for a stopped call every few milliseconds, so that it looks at the
// thread that it waits for.
timer_t start_tick() {
    struct sigaction action {};
    action.sa_handler = take_tick;
    (void)sigaction(SIGRTMAX, &action, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGRTMAX;
    timer_t tick{};
    (void)timer_create(CLOCK_MONOTONIC, &event, &tick);
    itimerspec period{};
    period.it_interval.tv_nsec = period.it_value.tv_nsec = TICK_NS;
    (void)timer_settime(tick, 0, &period, nullptr);
    return tick;
}

} // namespace

scheduler::scheduler(request_channel &all_requests, port_calls &all_calls)
    : requests(all_requests), calls(all_calls), machine_start_us(machine_us()) {
    tick = start_tick();
    keep_responses(this);
    calls.held.look_when_told();
    calls.takes_all_polls = calls.remembers = true;
}

scheduler::~scheduler() {
    keep_responses(nullptr);
    (void)timer_delete(tick);
}

void scheduler::add_program(pid_t id, int listener) {
    listeners.insert(listener);
    thread &first = processes.add(id, listener, id, getpid());
    if (await(first))
        make_ready(first);
}

void scheduler::step() {
    if (has_signal || timers.has_sent)
        look_for_signals();
    if (queue.empty()) {
        advance();
        return;
    }
    thread &next = *queue.front();
    queue.pop_front();
    give_token(next);
    look_at_left();
    adopt_strangers();
    forget_gone();
}

// The turn of a thread.

void scheduler::give_token(thread &of) {
    holder = &of;
    bool goes_on = true;
    while (goes_on) {
        if (!of.is_untaken && !release(of))
            break;
        take_call(of);
        goes_on = of.now == thread::state::ready && !yields;
    }
    holder = nullptr;
    if (std::exchange(yields, false) && of.now == thread::state::ready)
        queue.push_back(&of);
}

// False if the thread is not stopped again.
bool scheduler::release(thread &of) {
    forks_away = is_birth(of.asked) && is_vfork(of.asked);
    const bool is_left_to_kernel = (of.answer.flags & SECCOMP_USER_NOTIF_FLAG_CONTINUE) != 0;
    if (of.asked_at_us < now_us())
        of.works = 0;
    log.note(of.asked, of.called_at_us, of.answer);
    if (!send_response(of.asked, of.answer)) { // it has been killed
        end(of);
        return false;
    }
    return come_back(of, is_left_to_kernel);
}

bool scheduler::come_back(thread &of, bool is_left_to_kernel) {
    const timed_call *row = is_left_to_kernel ? find_timed_call(of.asked.call) : nullptr;
    const timed_kind kind = row != nullptr ? row->kind : timed_kind::none;
    of.has_executed = kind == timed_kind::execute;
    if (of.has_executed || kind == timed_kind::close)
        calls.note_changed_descriptors();
    if (kind == timed_kind::end) {
        end(of);
        return false;
    }
    vforking = kind == timed_kind::birth && forks_away ? &of : nullptr;
    if (kind == timed_kind::work && opens_file(of.asked.call))
        await_opening(of);
    const bool is_back = await(of);
    vforking = nullptr;
    if (of.has_executed)
        drop_ended_siblings(of);
    if (kind == timed_kind::birth)
        find_children(of);
    if (kind == timed_kind::send_log)
        after_send();
    if (kind == timed_kind::send_signal) {
        has_signal = true;
        bury_killed();
    }
    return is_back && of.now == thread::state::held;
}

void scheduler::take_call(thread &of) {
    of.is_untaken = false;
    if (of.asked_at_us != now_us())
        of.calls_at_once = 0;
    of.asked_at_us = now_us();
    of.called_at_us = now_us();
    const timed_call *row = find_timed_call(of.asked.call);
    if (row == nullptr || row->kind != timed_kind::work) // which has its own cost
        of.calls_at_once++;
    if (row != nullptr && is_native_call(of.asked.architecture, of.asked.call))
        carry_out(of, *row);
    else
        requests.hand_over(of.asked);
    if (of.now == thread::state::ready && of.calls_at_once > CALLS_AT_ONCE)
        delay(of, now_us() + SPIN_COST_US);
}

void scheduler::carry_out(thread &of, const timed_call &row) {
    if (row.kind != timed_kind::sleep)
        of.continued_sleep_us = NEVER;
    switch (row.kind) {
    case timed_kind::read_clock:
        return answer_clock(of.asked);
    case timed_kind::describe_machine:
        return answer_sysinfo(of.asked);
    case timed_kind::sleep:
        return calls.held.take(make_sleep(of.asked, of));
    case timed_kind::wait_for_signal:
        has_signal = true; // one may be there already
        return calls.held.take(make_wait_for_signal(of.asked));
    case timed_kind::wait_for_child:
        return calls.held.take(make_wait_for_child(of.asked, of, processes));
    case timed_kind::set_timer:
        return timers.take(of.asked, of.owner->id);
    case timed_kind::yield:
        return yield(of);
    case timed_kind::work:
        return do_work(of);
    case timed_kind::poll_with_mask:
        has_signal = true; // one that only the mask lets through may be there already
        return requests.hand_over(of.asked);
    case timed_kind::poll:
    case timed_kind::birth:
    case timed_kind::close:
        return requests.hand_over(of.asked);
    case timed_kind::futex:
        if (!futex_waits.take(of.asked, of, processes, calls.held))
            pass_on(of.asked);
        return;
    case timed_kind::not_modelled:
        unknown[row.name]++;
        return pass_on(of.asked);
    case timed_kind::break_after_execute:
        if (of.has_executed) {
            if (!replace_clock_functions(of.id))
                report("the clock of %s cannot be replaced", program_of_task(of.id).c_str());
            free_vfork_parent(*of.owner);
        }
        return pass_on(of.asked);
    default:
        return pass_on(of.asked);
    }
}

// An open of a port takes no time. All file systems of the board are in memory: sync(2) does
// nothing else, and would wait for the machine's disks.
void scheduler::do_work(thread &of) {
    if (!memories.empty() && opens_file(of.asked.call))
        (void)take_events(memories, 0); // what was closed gets ready for this open
    if (of.asked.call == SYS_sync)
        answer(of.asked, 0);
    else
        requests.hand_over(of.asked);
    const bool is_of_port = of.asked.call != SYS_sync && of.answer.flags == 0;
    const int64_t cost_us = is_of_port ? 0 : costs.of(of.asked);
    if (of.now == thread::state::ready && cost_us > 0 && ++of.works > FREE_WORKS)
        delay(of, now_us() + cost_us);
}

void scheduler::yield(thread &of) {
    answer(of.asked, 0);
    yields = true;
}

// A ready thread goes on later.
void scheduler::delay(thread &of, int64_t until_us) {
    if (of.now == thread::state::held)
        return;
    of.asked_at_us = until_us; // the delay is no sleep
    of.now = thread::state::held;
    delayed.emplace(until_us, &of);
}

void scheduler::keep(const request &asked, const response &given) {
    thread *of = processes.find(asked.caller);
    if (of == nullptr) {
        (void)send_response(asked, given);
        return;
    }
    of->answer = given;
    of->now = thread::state::ready;
    if (of != holder)
        queue.push_back(of);
}

int64_t scheduler::wake_time_us() const {
    return delayed.empty() ? NEVER : delayed.begin()->first;
}

void scheduler::wake(int64_t time_us) {
    while (!delayed.empty() && delayed.begin()->first <= time_us) {
        thread &of = *delayed.begin()->second;
        delayed.erase(delayed.begin());
        of.now = thread::state::ready;
        queue.push_back(&of);
    }
}

// Waiting until threads are stopped again.

// An open of a memory waits until the board has seen it. The memory reports it at once: the second
// tick, which ends other waits, comes some milliseconds later.
void scheduler::await_opening(const thread &of) {
    if (memories.empty())
        return;
    std::vector<pollfd> polls = {{of.listener, POLLIN, 0}};
    for (const event_source *memory : memories)
        memory->add_polls(polls);
    if (poll(polls.data(), polls.size(), -1) > 0 && polls[0].revents == 0)
        (void)take_events(memories, 0);
}

// False if the thread has gone, or waits in the kernel. Most threads are stopped again long before
// the second tick: only then is the look worth its price.
bool scheduler::await(thread &of) {
    of.now = thread::state::running;
    computing_from_us = NEVER;
    bool was_interrupted = false;
    while (of.now == thread::state::running) {
        request asked{};
        if (receive(of.listener, asked))
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
    left.push_back(&of);
    if (state == task_state::stopped) {
        of.owner->is_stop_unreported = true;
        processes.changes++;
        has_signal = true; // SIGCHLD
    } else if (state == task_state::sleeping) {
        if (const std::string name = unknown_sleep_of_task(of.id); !name.empty())
            unknown[name]++;
    }
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
        each->owner->is_stop_unreported = false;
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
        make_ready(*processes.find(asked.caller));
    }
}

// Births and deaths.

// After a call that makes a thread or a process: whatever is new has to be stopped in its first
// call.
void scheduler::find_children(thread &parent) {
    forget_gone();
    for (const pid_t id : threads_of_process(parent.owner->id))
        if (processes.find(id) == nullptr)
            admit(id, parent);
    for (const pid_t id : children_of_task(parent.id))
        if (processes.find_process(id) == nullptr)
            admit(id, parent);
}

void scheduler::admit(pid_t id, thread &parent) {
    const family of = family_of_task(id);
    thread &child = processes.add(id, parent.listener, of.process, of.parent);
    if (parent.now == thread::state::waits_for_child)
        child.owner->vfork_parent = parent.id;
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
        (void)sched_yield();
    of.now = thread::state::gone;
    processes.changes++;
}

void scheduler::bury(process &ended) {
    pollfd look{ended.end.get(), POLLIN, 0};
    while (poll(&look, 1, -1) < 0) { // the board's own tick interrupts it
    }
    while (ignores_children(ended.parent) && kill(ended.id, 0) == 0)
        (void)sched_yield(); // the kernel is reaping it
    processes.remember_end(ended);
    timers.forget(ended.id);
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

void scheduler::drop_gone() {
    calls.held.drop_gone();
    const auto is_gone = [](const thread *each) { return each->now == thread::state::gone; };
    std::erase_if(queue, is_gone);
    std::erase_if(left, is_gone);
    std::erase_if(delayed, [&](const auto &each) { return is_gone(each.second); });
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

// The signals that threads in held calls would notice. Of one process a single thread has a signal:
// the others are looked at when that one has taken it.
void scheduler::look_for_signals() {
    has_signal = timers.has_sent = false;
    const process *last = nullptr;
    for (const auto &[id, each] : processes.threads) {
        if (each->now != thread::state::held || each->is_untaken)
            continue;
        if (each->owner == last) {
            has_signal = true;
            continue;
        }
        calls.held.look_for_signal(id);
        if (each->now == thread::state::ready)
            last = each->owner;
    }
}

// The clock.

void scheduler::advance() {
    const int64_t next_us = next_wake_us(sources);
    const bool is_due = next_us <= now_us();
    const int64_t wait_us = is_due ? 0 : pace_us(next_us);
    // Before time passes, the devices take what the program has done to their nodes.
    if (!is_due && take_all_events(wait_us)) {
        look_at_left();
        adopt_strangers();
        return;
    }
    if (!is_due && pace_us(next_us) > 0)
        return;
    if (!is_due)
        set_own_clock(next_us);
    wake_due(sources);
    look_at_left();
}

// The operator, visitors and threads in the kernel are looked at when there may be something.
bool scheduler::take_all_events(int64_t wait_us) {
    calls.look_at_nodes(false);
    const bool is_full = looks_everywhere || wait_us > 0 || !left.empty() || has_ticked != 0;
    if (!is_full)
        return take_events(watched, 0) > 0;
    has_ticked = 0;
    looks_everywhere = false;
    calls.look_at_nodes(true);
    return take_events(sources, wait_us) > 0;
}

// How long the machine's time has to go on until the board's may.
int64_t scheduler::pace_us(int64_t next_us) const {
    if (next_us == NEVER || speed <= 0)
        return next_us == NEVER ? NEVER : 0;
    const double due_us = static_cast<double>(next_us - BOOT_US) / speed;
    return std::max<int64_t>(0, machine_start_us + static_cast<int64_t>(due_us) - machine_us());
}

void scheduler::add_polls(std::vector<pollfd> &polls) const {
    for (const int listener : listeners)
        polls.push_back({listener, POLLIN, 0});
}

void scheduler::ready(const pollfd &event) {
    request asked{};
    if ((event.revents & POLLIN) != 0 && receive(event.fd, asked))
        arrive(asked, nullptr);
    else if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listeners.erase(event.fd);
}

} // namespace simulator
