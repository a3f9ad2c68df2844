// The operator's terminal as the keyboard of the front panel (--panel).
//
// Only a process in the terminal's foreground may read it, see termios(3), and the board itself
// runs in a process group of its own. So the outer hk_board reads the keys and passes each stroke
// into the board as one message. It outlives the board, whatever ends that, and gives the terminal
// its settings back; only SIGKILL to itself can prevent it.
//
// Every key goes to the panel, but Ctrl-C, which ends the run as it does without --panel.
#pragma once

#include "simulator/base/unique_fd.h"

#include <memory>
#include <unistd.h>

struct termios; // of <termios.h>, which no file can include beside the kernel's own

namespace simulator {

struct operator_terminal {
    // Makes the way for the keys and says which there are. False after a message when standard
    // input is no terminal with hk_board in its foreground.
    bool open();
    // Where the board receives the keys, one message a stroke; -1 when not open.
    int board_end() const {
        return receiver.get();
    }

    // For the outer process, from the start of the board to its end.
    void make_raw();
    void restore();
    // What to watch for keys; -1: nothing, or nothing any more.
    int keys() const {
        return raw ? STDIN_FILENO : -1;
    }
    void pass_keys();

private:
    unique_fd sender;
    unique_fd receiver;
    std::shared_ptr<termios> settings; // as the operator had them
    bool raw = false;
};

} // namespace simulator
