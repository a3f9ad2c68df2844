#include "simulator/world/operator/foreground.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace simulator {

void foreground::find() {
    settings = std::make_shared<termios>();
    terminal.reset(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (terminal.is_open() &&
        (tcgetpgrp(terminal.get()) != getpgrp() || tcgetattr(terminal.get(), settings.get()) != 0))
        terminal.reset();
}

bool foreground::give_to(pid_t group) {
    return given = terminal.is_open() && tcsetpgrp(terminal.get(), group) == 0;
}

// Keys typed ahead stay in the terminal, for the operator's shell.
void foreground::take_back() const {
    if (!terminal.is_open() || tcgetpgrp(terminal.get()) == getpgrp())
        return;
    (void)tcsetpgrp(terminal.get(), getpgrp()); // the terminal may be gone
    (void)tcsetattr(terminal.get(), TCSADRAIN, settings.get());
}

} // namespace simulator
