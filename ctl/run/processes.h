// Processes as /proc shows them, see proc(5): their attached segments, whether they run. The
// process number and the start time identify a process, so a reused number causes no mistake.

#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

struct process {
    pid_t pid = 0;
    uint64_t started = 0;     // in clock ticks since the boot
    uint64_t executable = 0;  // inode of the program, 0 if it cannot be seen
    std::string command;      // its words, each with a zero byte at the end
    std::vector<int32_t> shm; // segments that it has attached
};

// Every process that has a segment attached. `unseen` counts the processes whose maps this user may
// not read.
std::vector<process> processes_with_segments(uint32_t &unseen);

// True while the process runs, false for a zombie.
bool is_running(const process &of);

// True if the process handles the signal; otherwise the signal would end it.
bool handles_signal(const process &of, int number);

// Sends a signal to this process, never to a later one with its number. False with errno, see
// kill(2).
bool send_signal(const process &to, int number);
