// The simulated board's front panel: scripts of keys, and the operator's terminal as the panel.

#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tests/board_run.h"

namespace {

TEST(KeyScript, sends_letters_escapes_and_any_byte) {
    board_run run = board_run::program(
        {"--keys", "ab @0.1 \\e\\r\\n\\s\\\\ \\x00\\xfF"},
        {"/bin/sh", "-c", "exec 3<>/dev/sp6; echo ready >&3; head -c 9 <&3 | od -An -tx1"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, " 61 62 1b 0d 0a 20 5c 00 ff\n");
}

TEST(KeyScript, that_is_wrong_or_finds_its_port_taken_is_refused) {
    struct {
        std::vector<std::string> options;
        const char *message;
    } const cases[] = {
        {{"--keys", "a \\q"}, "\\q"}, {{"--keys", "\\@"}, "\\@"},
        {{"--keys", "a\\"}, "a\\"},   {{"--keys", "\\x1"}, "\\x1"},
        {{"--keys", "@"}, "@"},       {{"--keys", "@-1"}, "@-1"},
        {{"--keys", "@1s"}, "@1s"},   {{"--cable", "2-6", "--keys", "a"}, "port 6"},
    };
    for (const auto &c : cases) {
        board_run run = board_run::program(c.options, {"/bin/true"});
        EXPECT_EQ(run.finish(), 2) << c.message;
        EXPECT_NE(run.errors.find(c.message), std::string::npos) << run.errors;
    }
}

// A shell on a terminal of its own, which starts hk_board with --panel. The shell stays when
// hk_board has ended, so that the terminal can be looked at.
class terminal_run {
public:
    explicit terminal_run(const std::string &command);
    ~terminal_run();
    terminal_run(const terminal_run &) = delete;
    terminal_run &operator=(const terminal_run &) = delete;

    bool wait_for(const std::string &part);
    void type(const std::string &keys) const {
        EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    termios settings() const {
        termios now{};
        EXPECT_EQ(tcgetattr(terminal, &now), 0);
        return now;
    }

    pid_t shell_id() const {
        return shell;
    }

    std::string screen; // everything shown so far
    termios before{};

private:
    int terminal = -1;
    pid_t shell = -1;
};

terminal_run::terminal_run(const std::string &command) {
    const std::string script = "trap : INT; read start; " + command + "; echo status=$?.; read end";
    shell = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (shell == 0) {
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        _exit(127);
    }
    before = settings();
    type("\n");
}

terminal_run::~terminal_run() {
    close(terminal); // hangs up: whatever runs there ends
    kill(shell, SIGKILL);
    waitpid(shell, nullptr, 0);
}

bool terminal_run::wait_for(const std::string &part) {
    constexpr int LIMIT_MS = 60'000; // without a byte
    while (screen.find(part) == std::string::npos) {
        pollfd output{terminal, POLLIN, 0};
        char bytes[1024];
        if (poll(&output, 1, LIMIT_MS) != 1) {
            return false;
        }
        const ssize_t count = read(terminal, bytes, sizeof bytes);
        if (count <= 0) {
            return false;
        }
        screen.append(bytes, static_cast<size_t>(count));
    }
    return true;
}

pid_t child_of(pid_t parent) {
    const std::string id = std::to_string(parent);
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    pid_t child = 0;
    children >> child;
    return child;
}

bool is_same(const termios &one, const termios &other) {
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
           one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
           std::equal(std::begin(one.c_cc), std::end(one.c_cc), std::begin(other.c_cc));
}

constexpr const char *PANEL_COMMAND =
    HK_BOARD_PATH " --panel -- " HK_EMULATOR " " HK_STRESS_PATH " -d1 -K";

TEST(PanelTerminal, is_keyboard_and_display_until_ctrl_c_and_gets_its_settings_back) {
    terminal_run run(PANEL_COMMAND);
    ASSERT_TRUE(run.wait_for(std::string(40, 'A')));
    EXPECT_EQ(run.settings().c_lflag & (ICANON | ECHO), 0U);
    run.type("\033[A");
    EXPECT_TRUE(run.wait_for("\033[2J3 UA\r"));
    run.type("\r");
    EXPECT_TRUE(run.wait_for("\033[2J1 RET\r"));
    run.type("\x1a");
    EXPECT_TRUE(run.wait_for("\033[2J1 \x1a\r")) << "Ctrl-Z is a key like others";
    run.type("\x03");
    EXPECT_TRUE(run.wait_for("status=0."));
    EXPECT_TRUE(is_same(run.settings(), run.before));
}

TEST(PanelTerminal, gets_its_settings_back_when_the_board_is_killed) {
    terminal_run run(PANEL_COMMAND);
    ASSERT_TRUE(run.wait_for(std::string(40, 'A')));
    EXPECT_FALSE(is_same(run.settings(), run.before));
    const pid_t outer = child_of(run.shell_id());
    ASSERT_GT(child_of(outer), 0);
    kill(child_of(outer), SIGKILL);
    EXPECT_TRUE(run.wait_for("status=125."));
    EXPECT_TRUE(is_same(run.settings(), run.before));
}

TEST(PanelTerminal, shows_log_lines_on_lines_of_their_own) {
    terminal_run run(HK_BOARD_PATH " --panel -- /bin/sh -c 'exec 3<>/dev/sp6; printf begun >&3; "
                                   "head -c 1 <&3 >/dev/null; reboot'");
    ASSERT_TRUE(run.wait_for("begun"));
    run.type("x");
    EXPECT_TRUE(run.wait_for("board: reboot requested\r\n"));
    EXPECT_NE(run.screen.find("begun\r\r\n"), std::string::npos) << run.screen;
    EXPECT_TRUE(run.wait_for("status=0."));
}

TEST(PanelTerminal, is_refused_where_its_keys_could_not_be_read) {
    for (const char *command : {HK_BOARD_PATH " --panel -- /bin/true </dev/null",
                                "set -m; " HK_BOARD_PATH " --panel -- /bin/true & wait $!"}) {
        terminal_run run(command);
        EXPECT_TRUE(run.wait_for("needs a terminal")) << run.screen;
        EXPECT_TRUE(run.wait_for("status=2.")) << run.screen;
    }
}

} // namespace
