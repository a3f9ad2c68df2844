// The board's own world: private mount, process, IPC, host name and network namespaces. They end
// with their first process, and that one is killed when the hk_board the operator started ends in
// any way; so nothing that happens on the board outlives it. See namespaces(7), pid_namespaces(7).
#pragma once

#include "simulator/world/foreground.h"
#include "simulator/world/terminal.h"

#include <cstdint>
#include <sched.h>
#include <sys/types.h>

namespace simulator {

// hk_board's own exit statuses; any other is the program's (128 + n when signal n ended it).
constexpr int STATUS_USAGE = 2;
constexpr int STATUS_HANG = 124;
constexpr int STATUS_NO_BOARD = 125;

// The oldest Linux on which every part of the board works. The newest call that the board needs
// puts a descriptor at a number of its choice in the same step as its answer
// (SECCOMP_ADDFD_FLAG_SEND); mount_setattr(2) is of 5.12, setns(2) with a process descriptor
// of 5.8.
constexpr int OLDEST_KERNEL[] = {5, 14};

// What a board has of its own; an ordinary user's has users of its own too.
constexpr uint64_t NAMESPACES =
    CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;

// The oldest for a time of its own: there a signal does not take back a call that the board has
// received (SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV).
constexpr int OWN_TIME_KERNEL[] = {5, 19};

// False after a message on an older kernel, which says who needs a later one.
bool kernel_is_at_least(const int (&oldest)[2], const char *who);

// Blocks the signals that an operator may send, so that they can be read from a descriptor. SIGHUP
// stays ignored if it is, as nohup(1) has it.
void take_operator_signals();

// Splits into the process outside (returns the inner one's id) and the first process of the new
// namespaces (returns 0). -1 after a message when the kernel refuses. All signals that the operator
// may send are blocked in both from then on.
pid_t enter_namespaces();

// The outer process from then on: passes signals and the terminal's keys on to the inner one and
// waits for its end. Returns the exit status of the run.
int wait_outside(pid_t inside, operator_terminal &keys, const foreground &terminal);

} // namespace simulator
