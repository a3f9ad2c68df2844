// The threads and processes of the program, as the scheduler sees them.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/notification.h"
#include "simulator/requests/request.h"
#include "simulator/time/clock.h"

#include <map>
#include <memory>
#include <vector>

namespace simulator {

struct process;

struct thread {
    enum class state {
        running,         // has been released
        held,            // in a call that the board has not answered
        ready,           // its call is answered; it waits for its turn
        waits_in_kernel, // in a call that the board left to the kernel, or stopped by a signal
        waits_for_child, // between vfork(2) and the child's execve(2)
        gone,
    };

    pid_t id;
    process *owner;
    int listener;
    state now = state::running;
    request asked{};             // held, or ready
    bool is_untaken = false;     // the call has only arrived
    response answer{};           // of a ready one
    bool is_writing_out = false; // waits in the kernel for the operator to read its output
    int64_t called_at_us = 0;    // when the call was made
    int64_t asked_at_us = 0;     // the same, or until when it was delayed
    int calls_at_once = 0;       // since the clock moved last
    int clock_reads = 0;         // without a call, since the last call
    int works = 0;               // of a stated cost, since the thread slept last
    bool has_executed = false;   // its last call was execve(2)
    // The end of a sleep or a futex wait in which it was stopped: the kernel makes the call again.
    int64_t continued_wait_us = NEVER;
};

struct process {
    pid_t id;
    pid_t parent;
    unique_fd end; // readable when it has ended
    bool has_ended = false;
    bool is_stopped = false;
    int unreported = 0;     // WUNTRACED or WCONTINUED: the parent has not waited for that yet
    pid_t vfork_parent = 0; // the thread that waits for its execve(2); 0: none
};

struct process_table {
    std::map<pid_t, std::unique_ptr<thread>> threads;
    std::map<pid_t, std::unique_ptr<process>> processes;
    uint64_t changes = 0; // another value whenever a wait for a child may have another result

    thread *find(pid_t id) const;
    process *find_process(pid_t id) const;

    // Adds a thread, and its process if that is new.
    thread &add(pid_t id, int listener, pid_t process, pid_t parent);
    void remember_end(process &ended);
    // Forgets the threads that have gone, and the processes that have been reaped.
    void forget_gone();

    void note_stop(process &stopped);
    // Somebody has sent SIGCONT to a stopped process.
    void note_continuation(process &continued);

    // What a wait of a process would find: none if it has no such child.
    enum class children { none, unchanged, changed };
    // `wanted` is as in wait4(2): a process above 0, a group below -1. `options` are WEXITED,
    // WUNTRACED and WCONTINUED.
    children look_for_children(pid_t parent, pid_t wanted, int options) const;
    // The kernel carries out such a wait. It reports the first child that has changed, and it
    // reports a stop or a continuation once (unless WNOWAIT is an option).
    void note_report(pid_t parent, pid_t wanted, int options);

private:
    std::vector<process *> children_of(pid_t parent, pid_t wanted) const;
};

} // namespace simulator
