// The board's own time (--clock virtual): the program runs as a discrete-event simulation.
//
// The token. Of all threads of the program one runs at a time: the one that has the token. The
// kernel stops a thread in each call that sleeps, reads the time or can let another thread go on
// (timed_calls.h), but for those that the program answers itself (clock_stub.h, quick_calls.h).
// While a thread is stopped it does nothing, and the token is the board's. The board answers the
// call and so hands the token on, and waits until that thread is stopped again. No two threads ever
// race, so that the order of everything they do is the board's choice, and the board chooses by
// rule: who was ready first runs first.
//
// The clock. While a thread runs the clock stands still: computing costs nothing (but see
// work_costs.h). When no thread is ready, the clock jumps to the next moment at which anything is
// due: the end of a sleep, a byte that arrives, a fault that begins. Devices wake before threads.
// An hour on the board lasts as long as its calls and its computing, and is the same on a busy
// machine as on a quiet one.
//
//      give_token ----> the thread runs ----> await: it is stopped in its next call
//          ^                                            |
//          |                                            v
//     ready <-- answered by the board or a device -- take_call
//          ^                                            |
//          |                                            v
//     advance: the clock jumps <------------------ nobody is ready
//
// Who else may run. A fork's child and its parent run side by side until both are stopped: the
// child's first call (set_robust_list(2)) is waited for before anything else happens. After
// vfork(2) the parent waits in the kernel, and the token is the child's. A thread that waits in the
// kernel for another one, such as a reader of a pipe, is left there (`waits_in_kernel`); the board
// looks at it after every turn, and when it has been woken waits until it is stopped again. Both
// are certain without a guess: what wakes it happens before the waker's next call. If such a call
// can also be ended by time, the board's clock has no part in it: those calls are counted and named
// at the end, if they sleep for longer than two ticks.
//
// Signals. The kernel does not let a signal interrupt a call that the board has taken. Whenever
// somebody has sent one, the board looks which threads would notice it and ends their calls as the
// kernel would. A signal that stops a process ends the calls of all its threads. The signals of a
// terminal and of a visitor are sent by no call that the board stops: it also looks before each
// long jump, and every 20 ms while time is paced.
//
// Spins. A program that waits in a loop of calls for a moment to come would never see it come:
// after a thousand calls at one moment each further one lasts a microsecond. So does a read of the
// time and a call on a port, though the board stops few of them (clock_stub.h, quick_calls.h). A
// loop without any call cannot be given a time that would be the same twice; it ends the run with
// a message.
#pragma once

#include "simulator/devices/serial/port_calls.h"
#include "simulator/own_time/call_log.h"
#include "simulator/own_time/calls/futex_calls.h"
#include "simulator/own_time/calls/interval_timers.h"
#include "simulator/own_time/calls/posix_timers.h"
#include "simulator/own_time/calls/work_costs.h"
#include "simulator/own_time/clock_stub.h"
#include "simulator/own_time/processes.h"
#include "simulator/own_time/quick/quick_calls.h"
#include "simulator/own_time/task_view.h"
#include "simulator/requests/notification.h"
#include "simulator/requests/request_channel.h"
#include "simulator/requests/timed_calls.h"
#include "simulator/time/event_loop.h"

#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace simulator {

struct scheduler final : event_source, response_keeper {
    scheduler(request_channel &all_requests, port_calls &all_calls);
    ~scheduler() override;
    scheduler(const scheduler &) = delete;
    scheduler &operator=(const scheduler &) = delete;

    // Wakes and watches the devices; the scheduler itself is one of them, held calls are the last.
    std::vector<event_source *> sources;
    std::vector<event_source *> watched;  // those of them that are looked at before each jump
    std::vector<event_source *> memories; // those of them that make an open wait
    interval_timers timers;
    posix_timers created_timers;
    call_log log; // not open without --calls
    work_costs costs;
    double speed = 0;                 // times the machine's; 0: as fast as it can
    std::function<void()> after_send; // a message for the log may have been sent
    // Of what the board and the program print: the clock waits for him. `has_blocked_writer`: a
    // thread of the program waits for him.
    std::function<bool(bool has_blocked_writer)> is_reader_late;
    // Ends the run: the program computes without an end.
    std::function<void(const std::string &where)> give_up;

    // The program's first thread has been started and has its filter.
    void add_program(pid_t id, int listener);
    // One step: a thread has its turn, or the clock moves.
    void step();
    // Somebody but a thread has sent a signal to one. Waits for the end of those that it has
    // killed: ending takes the machine's time, and the board's own clock must not jump meanwhile.
    void note_signal();
    // At the end of the run: completes the file of --calls.
    void finish_calls();
    // Sleeping calls and timers that the board does not model, and how often each was seen.
    const std::map<std::string, int> &unknown_sleeps() const {
        return unknown;
    }

    void keep(const request &asked, const response &given) override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    // The turn of a thread.
    void give_token(thread &of);
    bool release(thread &of);
    bool come_back(thread &of, timed_kind kind);
    void allow_unstopped_calls(const thread &of, timed_kind left_to_kernel);
    void take_over_quick_calls(thread &of);
    void take_call(thread &of);
    void carry_out(thread &of, const timed_call &row);
    void let_kernel_carry_out(thread &of, const timed_call &row);
    void note_mask(const request &asked);
    void begin_program(const thread &of);
    void do_work(thread &of);
    bool kill_process(const thread &of);
    void yield(thread &of);

    // Waiting until threads are stopped again.
    bool await(thread &of);
    void await_opening(const thread &of);
    bool receive_next(int listener, request &asked);
    void arrive(const request &asked, thread *awaited);
    void look_at(thread &running);
    bool is_computing_without_end(const thread &running);
    void leave_in_kernel(thread &of, task_state state);
    void note_stop(const thread &of);
    void look_at_left();
    void make_ready(thread &of);
    void adopt_strangers();

    // Births and deaths.
    void find_children(thread &parent);
    void find_orphans(int listener);
    void admit(pid_t id, int listener, pid_t vfork_parent);
    void end(thread &of);
    void bury(process &ended);
    void bury_killed();
    void drop_ended_siblings(const thread &of);
    void follow_execute(const thread &of);
    void drop_gone();
    void free_vfork_parent(process &child);
    void forget_gone();

    void look_for_signals();
    void note_unknown(const std::string &name);

    // The clock.
    void start_tick();
    void delay(thread &of, int64_t until_us);
    void advance();
    bool pass_time(int64_t next_us);
    void await_events(int64_t wait_us, int64_t next_us);
    bool must_look_for_signals(int64_t next_us);
    bool has_taken_events(bool has_waited);
    bool take_all_events(bool has_waited);
    int64_t pace_us(int64_t next_us) const;
    int64_t present_us() const;

    request_channel &requests;
    port_calls &calls;
    program_clock clock;
    quick_calls quick;
    process_table processes;
    futexes futex_waits;
    std::set<int> listeners;
    std::deque<thread *> queue; // ready threads
    std::multimap<int64_t, thread *> delayed;
    std::vector<thread *> left;     // in the kernel
    std::vector<request> strangers; // calls of threads that are not known yet
    thread *holder = nullptr;       // of the token
    thread *vforking = nullptr;
    bool yields = false;     // the holder hands the token on though its call is answered
    bool forks_away = false; // the call that is being released is a vfork(2)
    bool has_signal = false;
    bool looks_everywhere = true;
    bool has_reported_trace = false;   // of a traced process
    int64_t computing_from_us = NEVER; // processor time of the running thread after its last call
    int unstopped_calls_left = 0;      // of the running thread, when last looked at
    uint64_t forgotten_changes = 0;
    timer_t tick{};
    std::map<std::string, int> unknown;
    int64_t machine_start_us;
    int64_t next_look_us = 0; // for signals while time is paced, in the machine's time
};

} // namespace simulator
