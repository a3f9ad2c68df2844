#include "simulator/world/operator/terminal.h"

#include "simulator/base/message.h"

#include <array>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr size_t STROKE_BYTES = 64;

} // namespace

bool operator_terminal::open() {
    settings = std::make_shared<termios>();
    if (tcgetattr(STDIN_FILENO, settings.get()) != 0 || tcgetpgrp(STDIN_FILENO) != getpgrp())
        return complain("--panel needs a terminal as standard input, in the foreground");
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0)
        return cannot("open the socket for keys to", "the panel");
    sender.reset(ends[0]);
    receiver.reset(ends[1]);
    report("the keyboard is the panel's, Ctrl-C ends the run");
    report("arrows, Enter, s ESC, p NEXT, q YES, r NO, t AxON, u AxOFF");
    return true;
}

void operator_terminal::make_raw() {
    if (!sender.is_open())
        return;
    termios wanted = *settings;
    cfmakeraw(&wanted);
    wanted.c_oflag = settings->c_oflag; // keeps "\n" moving to the start of the next line
    wanted.c_lflag |= ISIG;             // Ctrl-C is the only signal key
    wanted.c_cc[VMIN] = 0;              // Ctrl-C takes keys away that poll(2) has reported
    wanted.c_cc[VQUIT] = _POSIX_VDISABLE;
    wanted.c_cc[VSUSP] = _POSIX_VDISABLE;
    raw = tcsetattr(STDIN_FILENO, TCSADRAIN, &wanted) == 0;
}

// Keys that nobody has read must not reach the operator's shell.
void operator_terminal::restore() {
    if (sender.is_open())
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, settings.get()); // the terminal may be gone
}

void operator_terminal::pass_keys(int events) {
    std::array<char, STROKE_BYTES> stroke{};
    const ssize_t length = read(STDIN_FILENO, stroke.data(), stroke.size());
    if (length < 0 || (events & (POLLHUP | POLLERR)) != 0)
        raw = false; // gone: nothing to read or restore
    if (length <= 0)
        return;
    // A board that does not keep up, or is ending, loses keys.
    (void)send(sender.get(), stroke.data(), static_cast<size_t>(length), MSG_DONTWAIT);
}

} // namespace simulator
