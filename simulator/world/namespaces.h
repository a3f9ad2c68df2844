// The board's private mount, process, IPC, host name and network namespaces. They end with their
// first process. The kernel kills that process when the hk_board that the operator started ends, in
// any way, so nothing on the board outlives it. See namespaces(7), pid_namespaces(7).
#pragma once

#include "simulator/world/operator/foreground.h"
#include "simulator/world/operator/terminal.h"

#include <cstdint>
#include <sched.h>
#include <sys/types.h>

namespace simulator {

// hk_board's own exit statuses; any other is the program's (128 + n when signal n ended it).
constexpr int STATUS_USAGE = 2;
constexpr int STATUS_NOT_MODELLED = 123; // with --strict
constexpr int STATUS_HANG = 124;
constexpr int STATUS_NO_BOARD = 125;

// The oldest Linux on which every part of the board works. The newest feature that it needs is
// SECCOMP_ADDFD_FLAG_SEND: one step gives the caller a descriptor and answers the call.
// mount_setattr(2) needs 5.12, setns(2) with a process descriptor 5.8.
constexpr int OLDEST_KERNEL[] = {5, 14};

// The namespaces of every board; an ordinary user's board has a user namespace too.
constexpr uint64_t NAMESPACES =
    CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;

// The oldest for a time of its own: there a signal does not take back a call that the board has
// received (SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV).
constexpr int OWN_TIME_KERNEL[] = {5, 19};

// False after a message on an older kernel, which says who needs a later one.
bool kernel_is_at_least(const int (&oldest)[2], const char *who);

// Blocks the signals that an operator may send; the board reads them from a descriptor. An ignored
// SIGHUP stays ignored, see nohup(1).
void take_operator_signals();

// Forks the first process of the new namespaces. Returns its id to the outer process and 0 to the
// new one; -1 after a message if the kernel refuses. Both processes then block all signals that the
// operator may send.
pid_t enter_namespaces();

// Runs in the outer process: passes signals and the terminal's keys on to the inner process and
// waits for its end. Returns the exit status of the run.
int wait_outside(pid_t inside, operator_terminal &keys, const foreground &terminal);

} // namespace simulator
