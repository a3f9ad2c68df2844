// What the scheduler does with each kind of call: the board answers it now or later, or leaves it
// to the kernel.
#include "simulator/own_time/scheduler.h"

#include "simulator/base/message.h"
#include "simulator/own_time/calls/clock_calls.h"
#include "simulator/own_time/calls/epoll_calls.h"
#include "simulator/own_time/calls/waiting_calls.h"
#include "simulator/requests/request_filter.h"

#include <csignal>
#include <sys/syscall.h>
#include <sys/time.h>

namespace simulator {

// The first call after execve(2), whichever it is. The C library's is brk(0). An execve that has
// failed began nothing: the program's clock is replaced already.
void scheduler::begin_program(const thread &of) {
    if (clock.has_replaced(of.id))
        return;
    if (!clock.replace_functions(of.asked))
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

void scheduler::yield(thread &of) {
    answer(of.asked, 0);
    yields = true;
}

} // namespace simulator
