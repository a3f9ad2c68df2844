// What the board sees of a thread that is not stopped in a call: its state in /proc, see proc(5).
#pragma once

#include "simulator/own_time/shared_memory.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace simulator {

enum class task_state {
    working,  // computes, waits for a processor, or for a disk
    sleeping, // in a call that ends when another thread or the operator does something
    stopped,  // by a signal
    traced,   // by another process, see ptrace(2), which alone lets it go on
    gone,     // has ended
};

task_state state_of_task(pid_t thread);

// Lets a thread run whose state is about to change: sleeps for a millisecond of the machine's time.
void give_way();

// The name of the call in which a thread sleeps in the kernel. Empty if the call can only be ended
// by another thread or the operator, or has no time-out: then the board's clock has no part in it.
std::string unknown_sleep_of_task(pid_t thread);

// Whether a sleeping thread is in a write to the board's own standard output or error.
bool writes_to_operator(pid_t thread);

// Whether the children of a process leave no zombies (SIGCHLD is ignored).
bool ignores_children(pid_t process);

// Whether a signal waits for a thread or its process.
bool is_signal_waiting(pid_t thread, int signal);

// Processor time that the thread has used, in microseconds.
int64_t processor_time_us(pid_t thread);

// The processes that a thread has forked and that have not been reaped, in the order of their
// births; the threads of its process.
std::vector<pid_t> children_of_task(pid_t thread);
std::vector<pid_t> threads_of_process(pid_t process);

struct family {
    pid_t process = 0;
    pid_t parent = 0;
};
family family_of_task(pid_t thread);

// "process 7 (program) at 0x... in file": where a thread computes that makes no call. It is stopped
// for that.
std::string place_of_task(pid_t thread);

// A place in memory that processes share: in which file, and where in it. None if the memory is not
// shared.
struct shared_place {
    std::string file; // its device and inode
    uint64_t offset;
};
std::optional<shared_place> shared_place_at(pid_t thread, uint64_t address);

// Memory that a process may write and shares with no other: its data with what follows, such as the
// heap, and the stack of its first thread. Other such memory is left out.
struct writable_areas {
    memory_area data{}, stack{};
};
writable_areas writable_areas_of(pid_t process);

// Who it runs as; an unknown user if it is gone.
uid_t user_of_task(pid_t thread);

// Whether its process numbers are the board's: it is in no PID namespace of its own.
bool shares_process_numbers(pid_t thread);

// The path of its program.
std::string program_of_task(pid_t thread);

} // namespace simulator
