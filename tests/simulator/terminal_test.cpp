// The operator's terminal: who has it, and what its keys do.
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"
#include "tests/support/terminal_run.h"

namespace {

constexpr const char *KEEP_AND_READY =
    HK_BOARD_PATH " -- sh -c 'trap \"$0\" TERM; echo ready; while :; do sleep 1000 & wait; done' ";

TEST(Terminal, a_shell_is_the_program_when_none_is_named_and_has_job_control) {
    terminal_run run("SHELL=/bin/sh PS1='on board$ ' " HK_BOARD_PATH);
    ASSERT_TRUE(run.wait_for("on board$ "));
    // The echo of what is typed has no digits: a shown sum comes from the running command.
    run.type("sh -c 'echo at $((40 + 2)); exec sleep 1000'\r");
    ASSERT_TRUE(run.wait_for("at 42"));
    run.type("\x1a");
    ASSERT_TRUE(run.wait_for("Stopped"));
    run.type("sh -c 'echo at $((50 + 2)); exec sleep 1000'\r");
    ASSERT_TRUE(run.wait_for("at 52"));
    run.type("\x03");
    run.type("echo at $((60 + 2))\r");
    ASSERT_TRUE(run.wait_for("at 62"));
    run.type("exit 9\rexit 9\r"); // the first one only warns of the stopped job
    EXPECT_TRUE(run.wait_for("status 9 restored.")) << run.screen;
}

TEST(Terminal, a_program_that_reads_it_or_sets_it_gets_it) {
    for (const char *command : {"bash --norc -c 'read line; echo got $line'",
                                "sh -c 'stty -echo; read line; echo got $line'"}) {
        terminal_run run(HK_BOARD_PATH " -- " + std::string(command));
        run.type("words\r");
        EXPECT_TRUE(run.wait_for("got words")) << run.screen;
        EXPECT_TRUE(run.wait_for("status 0 restored.")) << run.screen;
    }
}

// Pseudo-terminals of the board are numbered from 0 like those of the machine: the two here have
// low numbers on a machine with few terminals, and the ports have all of these.
TEST(Terminal, is_no_port_of_the_board_though_one_has_its_number) {
    const std::string command = HK_BOARD_PATH " --quiet --port 1 --port 2 --port 3 --port 4 "
                                              "--port 5 --port 6 --port 7 --port 8 -- echo shown";
    terminal_run first(command + "; sleep 1000");
    EXPECT_TRUE(first.wait_for("shown")) << first.screen;
    terminal_run second(command);
    EXPECT_TRUE(second.wait_for("shown")) << second.screen;
}

TEST(Terminal, is_not_given_to_a_program_in_the_background_which_ends) {
    terminal_run run("set -m; " HK_BOARD_PATH " -- sh -c 'read line' & wait $!");
    EXPECT_TRUE(run.wait_for("status 149 restored.")) << run.screen;
    EXPECT_NE(run.screen.find("needs the terminal"), std::string::npos);
}

TEST(Terminal, ctrl_c_ends_a_program_cleanly_and_the_second_one_at_once) {
    terminal_run clean(KEEP_AND_READY + std::string("'exit 4'"));
    ASSERT_TRUE(clean.wait_for("ready"));
    clean.type("\x03");
    EXPECT_TRUE(clean.wait_for("status 4 restored.")) << clean.screen;
    terminal_run forced(KEEP_AND_READY + std::string("'echo asked'"));
    ASSERT_TRUE(forced.wait_for("ready"));
    forced.type("\x03");
    ASSERT_TRUE(forced.wait_for("asked"));
    forced.type("\x03");
    EXPECT_TRUE(forced.wait_for("status 137 restored.")) << forced.screen;
}

TEST(Terminal, ctrl_c_ends_a_sleep_at_once_in_the_boards_own_time) {
    terminal_run run("SHELL=/bin/sh PS1='on board$ ' " HK_BOARD_PATH " --clock virtual --speed 1");
    ASSERT_TRUE(run.wait_for("on board$ "));
    run.type("sh -c 'echo at $((40 + 2)); exec sleep 1000'\r");
    ASSERT_TRUE(run.wait_for("at 42"));
    run.type("\x03");
    run.type("echo at $((60 + 2))\r");
    EXPECT_TRUE(run.wait_for("at 62")) << run.screen;
}

TEST(Terminal, is_given_back_when_the_board_is_killed) {
    terminal_run run("SHELL=/bin/sh PS1='on board$ ' " HK_BOARD_PATH);
    ASSERT_TRUE(run.wait_for("on board$ "));
    kill(child_of(child_of(run.shell)), SIGKILL);
    EXPECT_TRUE(run.wait_for("status 125 restored.")) << run.screen;
}

} // namespace
