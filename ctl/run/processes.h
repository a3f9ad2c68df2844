// Processes as /proc shows them, see proc(5): who has a segment attached, who is whose child, what
// runs. A process is known by its number and its start time, so that a number given away again is
// no mistake.

#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

struct process {
    pid_t pid = 0;
    pid_t parent = 0;
    uint64_t started = 0;     // in clock ticks since the boot
    uint64_t executable = 0;  // file number of the program, 0 when it cannot be seen
    std::string command;      // its words, a zero byte after each
    std::vector<int32_t> shm; // segments that it has attached
};

// Every process that has a segment attached. `unseen` counts those whose maps this user may not
// read.
std::vector<process> processes_with_segments(uint32_t &unseen);

// True while the process runs; not for one that has ended and is not reaped yet.
bool is_running(const process &of);

// True when the process handles the signal; one that it does not would end it.
bool handles_signal(const process &of, int number);

// Sends a signal to this very process. False with errno, see kill(2).
bool send_signal(const process &to, int number);
