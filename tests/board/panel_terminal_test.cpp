// The simulated board's front panel: scripts of keys, and the operator's terminal as the panel.

#include <csignal>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/board_run.h"
#include "tests/support/terminal_run.h"

namespace {

TEST(KeyScript, sends_letters_escapes_and_any_byte) {
    board_run run = board_run::program({"--keys", "ab @0.1 \\e\\r\\n\\s\\\\ \\x00\\xfF"},
                                       {"/bin/sh", "-c",
                                        "stty -F /dev/sp6 38400 raw -echo; exec 3<>/dev/sp6; echo "
                                        "ready >&3; head -c 9 <&3 | od -An -tx1"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, " 61 62 1b 0d 0a 20 5c 00 ff\n");
}

constexpr const char *PANEL_COMMAND =
    HK_BOARD_PATH " --clock virtual --speed 1 --panel -- " HK_EMULATOR " " HK_STRESS_PATH " -d1 -K";

TEST(PanelTerminal, is_keyboard_and_display_until_ctrl_c_and_gets_its_settings_back) {
    terminal_run run(PANEL_COMMAND);
    ASSERT_TRUE(run.wait_for(std::string(40, 'A')));
    EXPECT_TRUE(run.never_waits_for_a_key()) << "Ctrl-C can take a key away before it is read";
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
