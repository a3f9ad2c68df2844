#include "simulator/own_time/scheduler.h"

#include "simulator/base/message.h"
#include "simulator/own_time/calls/clock_calls.h"
#include "simulator/own_time/calls/epoll_calls.h"
#include "simulator/own_time/calls/waiting_calls.h"
#include "simulator/own_time/clock_stub.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/request_filter.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <linux/sched.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/time.h>
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

// The thread may read the time without a call where that counts as if each read were one: while no
// other thread can run, and as often as calls cost no time. The file of --calls has every read.
void scheduler::allow_clock_reads(const thread &of, timed_kind left_to_kernel) {
    const bool is_alone = left.empty() && left_to_kernel != timed_kind::birth &&
                          left_to_kernel != timed_kind::execute;
    const int calls_made = of.asked_at_us == now_us() ? of.calls_at_once : 0;
    clock.allow_reads(is_alone && !log.is_open() ? std::max(0, CALLS_AT_ONCE - calls_made) : 0);
}

// False if the thread is not stopped again.
bool scheduler::release(thread &of) {
    forks_away = is_birth(of.asked) && is_vfork(of.asked);
    const timed_kind left_to_kernel = kind_left_to_kernel(of);
    if (of.asked_at_us < now_us())
        of.works = 0;
    allow_clock_reads(of, left_to_kernel);
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
    of.clock_reads = clock.take_reads();
    vforking = nullptr;
    of.has_executed = executes;
    if (executes) {
        drop_ended_siblings(of);
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
    if (row != nullptr && is_native_call(of.asked.architecture, of.asked.call))
        carry_out(of, *row);
    else
        requests.hand_over(of.asked);
    if (of.now == thread::state::ready && of.calls_at_once > CALLS_AT_ONCE)
        delay(of, now_us() + SPIN_COST_US);
}

// The first call after execve(2), whichever it is. The C library's is brk(0). An execve that has
// failed began nothing: the program's clock is replaced already.
void scheduler::begin_program(const thread &of) {
    if (clock.has_replaced(of.id))
        return;
    if (!clock.replace_functions(of.id))
        report("the clock of %s cannot be replaced", program_of_task(of.id).c_str());
    created_timers.forget(of.owner->id);
    free_vfork_parent(*of.owner);
}

// A run that waits for it may never end: so it is reported at once, too.
void scheduler::note_unknown(const std::string &name) {
    if (unknown[name]++ == 0)
        report("%s waits in the machine's time, not the board's own", name.c_str());
}

void scheduler::carry_out(thread &of, const timed_call &row) {
    if (row.kind != timed_kind::sleep && row.kind != timed_kind::futex)
        of.continued_wait_us = NEVER;
    switch (row.kind) {
    case timed_kind::read_clock:
        clock.take_address(of.asked);
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
        if (row.number == SYS_setitimer && of.asked.arguments[0] != ITIMER_REAL)
            note_unknown("setitimer of processor time");
        return timers.take(of.asked, of.owner->id);
    case timed_kind::posix_timer:
        return created_timers.take(of.asked, of.owner->id);
    case timed_kind::yield:
        return yield(of);
    case timed_kind::epoll:
        note_mask(of.asked);
        return calls.held.take(make_epoll_wait(of.asked));
    case timed_kind::futex:
        if (!futex_waits.take(of.asked, of, processes, calls.held))
            pass_on(of.asked);
        return;
    default:
        return let_kernel_carry_out(of, row);
    }
}

// In the end: the board may make it wait first, or answer it after all.
void scheduler::let_kernel_carry_out(thread &of, const timed_call &row) {
    switch (row.kind) {
    case timed_kind::work:
        if (!clock.take_mapping(of.asked))
            do_work(of);
        return;
    case timed_kind::send_signal:
        if (!kill_process(of))
            pass_on(of.asked);
        return;
    case timed_kind::poll_with_mask:
        note_mask(of.asked);
        return requests.hand_over(of.asked);
    case timed_kind::poll:
    case timed_kind::birth:
    case timed_kind::close:
    case timed_kind::execute:
    case timed_kind::end:
        return requests.hand_over(of.asked);
    case timed_kind::not_modelled:
        note_unknown(row.name);
        return pass_on(of.asked);
    default:
        return pass_on(of.asked);
    }
}

// A signal that only the mask of a wait lets through may be there already.
void scheduler::note_mask(const request &asked) {
    has_signal = has_signal || gives_mask(asked);
}

// Before an open a memory gets its node ready, since the last close was seen by the kernel
// alone. An open of a port takes no time. All file systems of the board are in memory: sync(2) does
// nothing else, and would wait for the machine's disks.
void scheduler::do_work(thread &of) {
    if (!memories.empty() && opens_file(of.asked.call))
        (void)take_events(memories, 0);
    if (of.asked.call == SYS_sync)
        answer(of.asked, 0);
    else
        requests.hand_over(of.asked);
    const bool is_of_port = of.asked.call != SYS_sync && of.answer.flags == 0;
    const int64_t cost_us = is_of_port ? 0 : costs.of(of.asked);
    if (of.now == thread::state::ready && cost_us > 0 && ++of.works > FREE_WORKS)
        delay(of, now_us() + cost_us);
}

// kill(2) of another process with SIGKILL: the board sends the signal, and waits for the end. If
// the kernel sent it, SIGCHLD could come before the board has received the caller's next call,
// which would fail with EINTR. False if the kill is left to the kernel, which checks the rights of
// other users.
bool scheduler::kill_process(const thread &of) {
    const auto &words = of.asked.arguments;
    if (of.asked.call != SYS_kill || words[1] != SIGKILL || !shares_process_numbers(of.id))
        return false;
    process *target = processes.find_process(static_cast<pid_t>(words[0]));
    if (target == nullptr || target == of.owner || target->has_ended ||
        user_of_task(target->id) != user_of_task(of.id))
        return false;
    if (kill(target->id, SIGKILL) != 0)
        return false;
    bury(*target);
    answer(of.asked, 0);
    return true;
}

void scheduler::finish_calls() {
    for (const auto &[id, each] : processes.threads)
        if (each->now == thread::state::held && !each->owner->has_ended)
            log.note_held(each->asked, each->called_at_us);
    log.finish();
}

void scheduler::yield(thread &of) {
    answer(of.asked, 0);
    yields = true;
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
