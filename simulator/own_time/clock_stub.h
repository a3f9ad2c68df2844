// Makes a program read the board's clock.
//
// The C library does not call the kernel for the time: the kernel maps functions into each process
// that read a page of its own (vdso(7)). The board overwrites them in the process's memory with the
// plain system calls, which it answers. It does so at the first call after an execve(2); forks
// inherit the changed functions.
#pragma once

#include "simulator/requests/request.h"

namespace simulator {

// False if the process cannot be changed.
bool replace_clock_functions(pid_t process);

} // namespace simulator
