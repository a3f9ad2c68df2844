// The foreground of the operator's terminal, which belongs to one process group at a time; see
// tcsetpgrp(3).
//
// The board runs in its own process groups, so Ctrl-C reaches only the outer hk_board, which ends
// the run cleanly. The kernel stops a background program that uses the terminal itself, such as a
// shell or an editor. The board then gives it the terminal, as a shell does for a job. From then on
// Ctrl-C goes to that program.
#pragma once

#include "simulator/base/unique_fd.h"

#include <memory>
#include <sys/types.h>

struct termios; // of <termios.h>, which conflicts with the kernel's header

namespace simulator {

class foreground {
public:
    // Finds the controlling terminal if hk_board is in its foreground. Call it outside the
    // namespaces.
    void find();
    // Gives the terminal to a process group. False if there is none or the kernel refuses.
    bool give_to(pid_t group);
    // After the run: takes the terminal back for hk_board's group and restores its settings.
    void take_back() const;
    // True after a successful `give_to` in this process.
    bool is_given() const {
        return given;
    }

private:
    unique_fd terminal;                // none: hk_board is in the background, or has no terminal
    std::shared_ptr<termios> settings; // as the operator had them
    bool given = false;
};

} // namespace simulator
