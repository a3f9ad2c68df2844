// The operator's terminal as the keyboard of the front panel (--panel).
//
// Only a process in the terminal's foreground may read it, see termios(3), and the board runs in
// its own process group. So the outer hk_board reads the keys and sends each stroke into the board
// as one message. It outlives the board and restores the terminal's settings, whatever ends the
// board; only a SIGKILL to itself prevents that.
//
// Every key goes to the panel except Ctrl-C, which ends the run as it does without --panel.
#pragma once

#include "simulator/base/unique_fd.h"

#include <memory>
#include <unistd.h>

struct termios; // of <termios.h>, which conflicts with the kernel's header

namespace simulator {

struct operator_terminal {
    // Opens the socket for the keys and prints which keys there are. False after a message if
    // standard input is not a terminal with hk_board in its foreground.
    bool open();
    // Where the board receives the keys, one message a stroke; -1 when not open.
    int board_end() const {
        return receiver.get();
    }

    // For the outer process, from the start of the board to its end.
    void make_raw();
    void restore();
    // The descriptor to watch for keys; -1 if there is none, or none any more.
    int keys() const {
        return raw ? STDIN_FILENO : -1;
    }
    // Passes on what has been typed; `events` is what poll(2) reports for keys().
    void pass_keys(int events);

private:
    unique_fd sender;
    unique_fd receiver;
    std::shared_ptr<termios> settings; // as the operator had them
    bool raw = false;
};

} // namespace simulator
