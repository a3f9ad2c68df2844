// The operator's terminal as something that a job of the shell holds; see tcsetpgrp(3).
//
// The board runs in process groups of its own, so that Ctrl-C reaches the outer hk_board alone,
// which ends the run cleanly. A program that uses the terminal itself, a shell or an editor, is
// stopped by the kernel for not being in the foreground. It is given the terminal then, as a shell
// gives it to a job, and Ctrl-C is its own from then on.
#pragma once

#include "simulator/base/unique_fd.h"

#include <memory>
#include <sys/types.h>

struct termios; // of <termios.h>, which no file can include beside the kernel's own

namespace simulator {

class foreground {
public:
    // Finds the controlling terminal, if hk_board is in its foreground; to be called outside.
    void find();
    // Gives the terminal to a process group. False when there is none to give.
    bool give_to(pid_t group);
    // After the run: gives the terminal back to hk_board's group, with the settings of before.
    void take_back() const;
    // True from a `give_to` in this process on.
    bool is_given() const {
        return given;
    }

private:
    unique_fd terminal;                // none: hk_board is in the background, or has no terminal
    std::shared_ptr<termios> settings; // as the operator had them
    bool given = false;
};

} // namespace simulator
