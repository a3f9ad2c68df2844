// The simulated board's front panel: scripts of keys, and the operator's terminal as the panel.

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

TEST(KeyScript, sends_letters_escapes_and_any_byte) {
    board_run run = board_run::program({"--keys", "ab @0.1 \\e\\r\\n\\s\\\\ \\x00\\xfF"},
                                       {"/bin/sh", "-c",
                                        "stty -F /dev/sp6 38400 raw -echo; exec 3<>/dev/sp6; echo "
                                        "ready >&3; head -c 9 <&3 | od -An -tx1"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, " 61 62 1b 0d 0a 20 5c 00 ff\n");
}

// A shell on a terminal of its own, which runs hk_board with --panel and then says how that ended
// and whether the terminal's settings are the ones of before.
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

    std::string screen; // everything shown so far
    pid_t shell = -1;

private:
    int terminal = -1;
};

terminal_run::terminal_run(const std::string &command) {
    const std::string script = "trap : INT; before=$(stty -g); " + command +
                               "; echo status $? $(test $(stty -g) = $before && echo restored).";
    shell = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (shell == 0) {
        execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        _exit(127);
    }
}

terminal_run::~terminal_run() {
    close(terminal); // hangs up: whatever runs there ends
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

constexpr const char *PANEL_COMMAND =
    HK_BOARD_PATH " --panel -- " HK_EMULATOR " " HK_STRESS_PATH " -d1 -K";

TEST(PanelTerminal, is_keyboard_and_display_until_ctrl_c_and_gets_its_settings_back) {
    terminal_run run(PANEL_COMMAND);
    ASSERT_TRUE(run.wait_for(std::string(40, 'A')));
    run.type("\033[A");
    ASSERT_TRUE(run.wait_for("\033[2J3 UA\r"));
    run.type("\r");
    ASSERT_TRUE(run.wait_for("\033[2J1 RET\r"));
    run.type("\x1a");
    ASSERT_TRUE(run.wait_for("\033[2J1 \x1a\r")) << "Ctrl-Z is a key like others";
    EXPECT_EQ(run.screen.find("^["), std::string::npos) << "an echo of the arrow";
    run.type("\x03");
    EXPECT_TRUE(run.wait_for("status 0 restored.")) << run.screen;
}

TEST(PanelTerminal, gets_its_settings_back_when_the_board_is_killed) {
    terminal_run run(PANEL_COMMAND);
    ASSERT_TRUE(run.wait_for(std::string(40, 'A')));
    const pid_t board = child_of(child_of(run.shell));
    ASSERT_GT(board, 0);
    kill(board, SIGKILL);
    EXPECT_TRUE(run.wait_for("status 125 restored.")) << run.screen;
}

TEST(PanelTerminal, shows_log_lines_on_lines_of_their_own) {
    terminal_run run(
        HK_BOARD_PATH
        " --panel -- /bin/sh -c 'stty -F /dev/sp6 38400 -icanon -echo; exec 3<>/dev/sp6; "
        "printf \"begun\\n\" >&3; "
        "head -c 1 <&3 >/dev/null; reboot'");
    ASSERT_TRUE(run.wait_for("begun"));
    run.type("x");
    EXPECT_TRUE(run.wait_for("board: reboot requested\r\n"));
    EXPECT_NE(run.screen.find("begun\r\r\n"), std::string::npos) << run.screen;
    EXPECT_TRUE(run.wait_for("status 0 restored."));
}

TEST(PanelTerminal, is_refused_where_its_keys_could_not_be_read) {
    for (const char *command : {HK_BOARD_PATH " --panel -- /bin/true </dev/null",
                                "set -m; " HK_BOARD_PATH " --panel -- /bin/true & wait $!"}) {
        terminal_run run(command);
        EXPECT_TRUE(run.wait_for("status 2 restored.")) << run.screen;
        EXPECT_NE(run.screen.find("needs a terminal"), std::string::npos) << run.screen;
    }
}

} // namespace
