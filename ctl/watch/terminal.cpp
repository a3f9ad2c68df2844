#include "ctl/watch/terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "ctl/text.h"

namespace {

constexpr char ENTER_SCREEN[] = "\033[?1049h\033[?25l"; // a screen of its own, no cursor
constexpr char LEAVE_SCREEN[] = "\033[?25h\033[?1049l";
constexpr char HOME[] = "\033[H";
constexpr char CLEAR_REST[] = "\033[J";
constexpr char CLEAR_LINE_REST[] = "\033[K";
constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH};
constexpr uint16_t SIZE_MAX_SHOWN = 500;
constexpr int ESCAPE_MS = 20;

volatile sig_atomic_t end_asked = 0;

// A new size of the terminal only ends the wait.
void take_signal(int number) {
    if (number != SIGWINCH)
        end_asked = 1;
}

// From here on they come only while wait_for_key waits, with the mask that this returns: one that
// came just before would not end the wait.
sigset_t handle_signals() {
    struct sigaction action = {};
    action.sa_handler = take_signal;
    sigset_t handled = {};
    for (const int number : SIGNALS) {
        (void)sigaction(number, &action, nullptr);
        sigaddset(&handled, number);
    }
    sigset_t before;
    sigprocmask(SIG_BLOCK, &handled, &before);
    return before;
}

void put(const std::string &text) {
    for (size_t at = 0; at < text.size();) {
        const ssize_t count = write(STDOUT_FILENO, text.data() + at, text.size() - at);
        if (count < 0 && errno != EINTR)
            return; // the terminal is gone; the next key reports that
        at += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
}

key key_of(char byte) {
    switch (byte) {
    case 'k':
        return key::UP;
    case 'j':
        return key::DOWN;
    case 'h':
        return key::HOLD;
    case 'r':
        return key::RELEASE;
    case 'q':
        return key::LEAVE;
    default:
        return key::NONE;
    }
}

// The next byte of an escape sequence, which must come at once; else 0.
char next_byte() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    char byte = 0;
    if (poll(&input, 1, ESCAPE_MS) == 1)
        (void)!read(STDIN_FILENO, &byte, 1);
    return byte;
}

// An arrow is ESC, '[' or 'O', and a letter.
key read_arrow() {
    const char second = next_byte();
    const char third = second == '[' || second == 'O' ? next_byte() : '\0';
    if (third == 'A')
        return key::UP;
    return third == 'B' ? key::DOWN : key::NONE;
}

// `events` is what poll(2) reports for standard input.
key read_key(int events) {
    char byte = 0;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count > 0)
        return byte == '\033' ? read_arrow() : key_of(byte);
    const bool is_gone = count < 0 || (events & (POLLHUP | POLLERR)) != 0;
    return is_gone ? key::LEAVE : key::NONE;
}

} // namespace

terminal::terminal()
    : signals_before(handle_signals()), has_keys(tcgetattr(STDIN_FILENO, &before) == 0) {
    if (has_keys) {
        termios raw = before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        raw.c_cc[VMIN] = 0; // Ctrl-C takes keys away that poll(2) has reported
        raw.c_cc[VTIME] = 0;
        raw.c_cc[VSUSP] = _POSIX_VDISABLE; // a stopped watch would leave its screen
        (void)tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    put(ENTER_SCREEN);
}

terminal::~terminal() {
    put(LEAVE_SCREEN);
    if (has_keys)
        (void)tcsetattr(STDIN_FILENO, TCSANOW, &before);
    sigprocmask(SIG_SETMASK, &signals_before, nullptr);
}

screen_size terminal::size() const {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {};
    return {std::min(size.ws_col, SIZE_MAX_SHOWN), std::min(size.ws_row, SIZE_MAX_SHOWN)};
}

// Writes no line end after the last line, which would scroll the screen.
void terminal::show(const std::vector<std::string> &lines) const {
    std::string frame = HOME;
    for (size_t i = 0; i < lines.size(); ++i)
        frame += (i > 0 ? "\r\n" : "") + lines[i] + CLEAR_LINE_REST;
    put(frame + CLEAR_REST);
}

key terminal::wait_for_key(int64_t limit_ms) const {
    pollfd input = {has_keys ? STDIN_FILENO : -1, POLLIN, 0};
    const timespec limit = {limit_ms / 1000, static_cast<long>(limit_ms % 1000 * 1000000)};
    const int ready = ppoll(&input, 1, &limit, &signals_before);
    if (end_asked != 0)
        return key::LEAVE;
    return ready > 0 ? read_key(input.revents) : key::NONE;
}

bool takes_utf8() {
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = getenv(name);
        if (value != nullptr && *value != '\0')
            return std::string(value).find("UTF-8") != std::string::npos ||
                   std::string(value).find("utf8") != std::string::npos;
    }
    return false;
}
