#include "tests/support/terminal_run.h"

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/support/board_run.h"

terminal_run::terminal_run(const std::string &command, uint16_t columns, uint16_t rows) {
    const std::string script = "trap : INT; before=$(stty -g); " + command +
                               "; echo status $? $(test $(stty -g) = $before && echo restored).";
    const winsize size = {rows, columns, 0, 0};
    shell = forkpty(&terminal, nullptr, nullptr, &size);
    if (shell == 0) {
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        _exit(127);
    }
}

terminal_run::~terminal_run() {
    close(terminal); // hangs up: the processes on it end
    kill(shell, SIGKILL);
    waitpid(shell, nullptr, 0);
}

bool terminal_run::wait_for(const std::string &part) {
    const auto latest = std::chrono::steady_clock::now() + wait_limit();
    while (screen.find(part) == std::string::npos) {
        pollfd output{terminal, POLLIN, 0};
        char bytes[1024];
        ssize_t count = 0;
        if (std::chrono::steady_clock::now() > latest ||
            poll(&output, 1, static_cast<int>(wait_limit().count() * 1000)) != 1 ||
            (count = read(terminal, bytes, sizeof bytes)) <= 0)
            return false;
        screen.append(bytes, static_cast<size_t>(count));
    }
    return true;
}

void terminal_run::type(const std::string &keys) const {
    EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void terminal_run::resize(uint16_t columns, uint16_t rows) const {
    const winsize size = {rows, columns, 0, 0};
    EXPECT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
}

bool terminal_run::never_waits_for_a_key() const {
    termios settings{};
    return tcgetattr(terminal, &settings) == 0 && (settings.c_lflag & ICANON) == 0 &&
           settings.c_cc[VMIN] == 0 && settings.c_cc[VTIME] == 0;
}
