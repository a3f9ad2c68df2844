#include "simulator/own_time/scheduler.h"

#include "simulator/own_time/clock_stub.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/request_filter.h"

#include <algorithm>
#include <ctime>
#include <linux/sched.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace simulator {

namespace {

constexpr int CALLS_AT_ONCE = 1000;
constexpr int64_t SPIN_COST_US = 1;

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

// What the kernel carries out once the thread goes on; none if the board has answered the call.
timed_kind kind_left_to_kernel(const thread &of) {
    const bool is_left = (of.answer.flags & SECCOMP_USER_NOTIF_FLAG_CONTINUE) != 0;
    const timed_call *row = is_left ? find_timed_call(of.asked.call) : nullptr;
    return row != nullptr ? row->kind : timed_kind::none;
}

} // namespace

scheduler::scheduler(request_channel &all_requests, port_calls &all_calls)
    : requests(all_requests),
      calls(all_calls),
      clock(all_calls.numbers.first - 1),
      quick(clock, all_calls),
      machine_start_us(machine_us()) {
    start_tick();
    keep_responses(this);
    calls.held.look_when_told();
}

scheduler::~scheduler() {
    keep_responses(nullptr);
    (void)timer_delete(tick);
}

void scheduler::add_program(pid_t id, int listener) {
    listeners.insert(listener);
    calls.keep_time_of(listener);
    thread &first = processes.add(id, listener, id, getpid());
    if (await(first))
        make_ready(first);
}

void scheduler::step() {
    if (timers.has_sent || created_timers.has_sent)
        note_signal();
    if (has_signal)
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

// The thread may read the time and use ports without a stopped call while no other thread can run,
// and as often as stopped calls cost no time. After a birth the new thread
// runs too, and the parent of a vfork(2) goes on as soon as its child has another program or ends.
// The file of --calls has every call.
void scheduler::allow_unstopped_calls(const thread &of, timed_kind left_to_kernel) {
    const bool is_alone = left.empty() && of.owner->vfork_parent == 0 &&
                          left_to_kernel != timed_kind::birth &&
                          left_to_kernel != timed_kind::execute;
    const int calls_made = of.asked_at_us == now_us() ? of.calls_at_once : 0;
    const int count = is_alone && !log.is_open() ? std::max(0, CALLS_AT_ONCE - calls_made) : 0;
    clock.allow_reads(count);
    quick.offer(of, count > 0 && left_to_kernel != timed_kind::close);
}

// False if the thread is not stopped again.
bool scheduler::release(thread &of) {
    forks_away = is_birth(of.asked) && is_vfork(of.asked);
    const timed_kind left_to_kernel = kind_left_to_kernel(of);
    if (of.asked_at_us < now_us())
        of.works = 0;
    allow_unstopped_calls(of, left_to_kernel);
    log.note(of.asked, of.called_at_us, of.answer);
    if (!send_response(of.asked, of.answer)) { // it has been killed
        end(of);
        return false;
    }
    return come_back(of, left_to_kernel);
}

// `kind` is none if the kernel does not carry out the call.
bool scheduler::come_back(thread &of, timed_kind kind) {
    const bool executes = kind == timed_kind::execute;
    if (executes || kind == timed_kind::close)
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
    of.has_executed = executes;
    if (executes) {
        drop_ended_siblings(of);
        quick.forget(of.owner->id);
        follow_execute(of);
    }
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

// The thread does not run.
void scheduler::take_over_quick_calls(thread &of) {
    of.clock_reads += clock.take_reads();
    quick.take_over();
}

void scheduler::take_call(thread &of) {
    of.is_untaken = false;
    if (of.asked_at_us != now_us())
        of.calls_at_once = 0;
    of.calls_at_once += std::exchange(of.clock_reads, 0);
    of.asked_at_us = now_us();
    of.called_at_us = now_us();
    const timed_call *row = find_timed_call(of.asked.call);
    if (row == nullptr || row->kind != timed_kind::work) // which has its own cost
        of.calls_at_once++;
    if (std::exchange(of.has_executed, false) &&
        is_native_call(of.asked.architecture, of.asked.call))
        begin_program(of);
    if (!log.is_open())
        quick.learn(of);
    if (row != nullptr && is_native_call(of.asked.architecture, of.asked.call))
        carry_out(of, *row);
    else
        requests.hand_over(of.asked);
    if (of.now == thread::state::ready && of.calls_at_once > CALLS_AT_ONCE)
        delay(of, now_us() + SPIN_COST_US);
}

void scheduler::finish_calls() {
    for (const auto &[id, each] : processes.threads)
        if (each->now == thread::state::held && !each->owner->has_ended)
            log.note_held(each->asked, each->called_at_us);
    log.finish();
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

// The signals that threads in held calls would notice. Of one process a single thread has a signal:
// the others are looked at when that one has taken it.
void scheduler::look_for_signals() {
    has_signal = timers.has_sent = created_timers.has_sent = false;
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

} // namespace simulator
