// Boards with a name: entering one that runs, and keeping two apart.
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

// Each case has names of its own, so that cases can run at the same time.
std::string own_name(const char *name) {
    return name + std::to_string(getpid());
}

// In the machine's time, in which its visitors are: its own would pass at once.
board_run waiting_board(std::vector<std::string> options) {
    options.insert(options.begin(), {"--clock", "real"});
    return board_run::program(std::move(options),
                              {"/bin/sh", "-c", "echo ready; while :; do sleep 1000; done"});
}

// Runs a script on the board of that name, from outside; its exit status and what it prints.
int enter(const std::string &name, const std::string &script, std::string &printed) {
    // A process that has moved into another board's processes cannot start the thread with which
    // the sanitizer looks for leaks.
    const std::string command = "ASAN_OPTIONS=detect_leaks=0 " HK_BOARD_PATH " --enter " + name +
                                " -- sh -c '" + script + "' 2>&1";
    FILE *visit = popen(command.c_str(), "r");
    for (int letter; (letter = fgetc(visit)) != EOF;)
        printed += static_cast<char>(letter);
    return WEXITSTATUS(pclose(visit));
}

TEST(NamedBoard, is_entered_with_its_own_files_and_processes_and_no_other_is) {
    board_run left = waiting_board({"--name", own_name("left"), "--cable", "2-8"});
    board_run right = waiting_board({"--name", own_name("right"), "--port", "3"});
    ASSERT_TRUE(left.wait_for_output("ready") && right.wait_for_output("ready"));
    std::string printed;
    EXPECT_EQ(enter(own_name("left"), "ls /dev/sp*; echo seen >/r0/file; exit 7", printed), 7);
    EXPECT_EQ(printed, "/dev/sp2\n/dev/sp8\n");
    printed.clear();
    EXPECT_EQ(enter(own_name("left"), "cat /r0/file; reboot", printed), 0);
    EXPECT_EQ(printed, "seen\n");
    EXPECT_TRUE(left.wait_for_log("reboot requested"));
    printed.clear();
    EXPECT_EQ(enter(own_name("right"), "ls /dev/sp* /r0", printed), 0);
    EXPECT_EQ(printed, "/dev/sp3\n\n/r0:\n");
    EXPECT_EQ(right.notes(), "");
}

TEST(NamedBoard, serves_the_device_requests_of_a_visitor) {
    board_run board = waiting_board({"--name", own_name("served"), "--spi", "219"});
    ASSERT_TRUE(board.wait_for_output("ready"));
    std::string command;
    for (const std::string &word : own_program(HK_STRESS_PATH, {"-d1", "-l1", "-L"}))
        command += word + " ";
    std::string printed;
    EXPECT_EQ(enter(own_name("served"), "timeout 3 " + command, printed), 124) << printed;
    const auto item = board.wait_for_log("<LI>");
    ASSERT_TRUE(item);
    EXPECT_NE(item->text.find("errors 0,0,0"), std::string::npos) << item->text;
}

TEST(NamedBoard, in_its_own_time_notices_the_signal_of_a_visitor) {
    for (const auto &[signal, status] :
         {std::pair{"TERM", 128 + SIGTERM}, {"KILL", 128 + SIGKILL}}) {
        board_run board =
            board_run::program({"--clock", "virtual", "--speed", "1", "--name", own_name("own")},
                               {"/bin/sh", "-c", "echo ready; exec sleep 1000"});
        ASSERT_TRUE(board.wait_for_output("ready"));
        std::string printed;
        // The end of the board may end the visitor too: its own status says nothing.
        (void)enter(own_name("own"), std::string("kill -") + signal + " 2", printed);
        EXPECT_EQ(board.finish(), status) << printed;
    }
}

// He opens two ports under one number, and ends without closing a port.
TEST(NamedBoard, in_its_own_time_serves_the_ports_of_a_visitor) {
    board_run board = board_run::program(
        {"--clock", "virtual", "--speed", "1", "--name", own_name("ports"), "--cable", "2-8"},
        {"/bin/sh", "-c", "echo ready; exec sleep 1000"});
    ASSERT_TRUE(board.wait_for_output("ready"));
    std::string printed;
    EXPECT_EQ(enter(own_name("ports"), R"script(exec timeout 60 python3 -c "
import os, termios, tty
def open_port(name, speed):
    port = os.open(name, os.O_RDWR | os.O_NOCTTY)
    tty.setraw(port)
    settings = termios.tcgetattr(port)
    settings[4] = settings[5] = speed
    termios.tcsetattr(port, termios.TCSANOW, settings)
    return port
os.close(open_port(\"/dev/sp8\", termios.B115200))
first = open_port(\"/dev/sp2\", termios.B19200)
os.close(first)
second = os.open(\"/dev/sp8\", os.O_RDWR | os.O_NOCTTY)
print(first == second, termios.tcgetattr(second)[5] == termios.B115200)
if os.fork() == 0:
    os.write(open_port(\"/dev/sp2\", termios.B115200), bytes(1500))
    os._exit(0)
got = 0
while got < 1500:
    got += len(os.read(second, 1500))
print(got)")script",
                    printed),
              0);
    EXPECT_EQ(printed, "True True\n1500\n");
}

TEST(NamedBoard, name_is_refused_while_it_is_taken_and_free_after_a_kill) {
    board_run first = waiting_board({"--name", own_name("one")});
    ASSERT_TRUE(first.wait_for_output("ready"));
    board_run second = waiting_board({"--name", own_name("one")});
    EXPECT_EQ(second.finish(), 2);
    EXPECT_NE(second.errors.find("a board of that name is running"), std::string::npos);
    // The process inside ends after the outer one, and has the name until then.
    const unique_fd inside(
        static_cast<int>(syscall(SYS_pidfd_open, child_of(first.board_id()), 0)));
    first.signal(SIGKILL);
    EXPECT_EQ(first.finish(), 128 + SIGKILL);
    pollfd end{inside.get(), POLLIN, 0};
    ASSERT_EQ(poll(&end, 1, static_cast<int>(wait_limit() / std::chrono::milliseconds(1))), 1);
    std::string printed;
    EXPECT_EQ(enter(own_name("one"), "true", printed), 2);
    EXPECT_NE(printed.find("no board of that name is running"), std::string::npos);
    board_run third = waiting_board({"--name", own_name("one")});
    EXPECT_TRUE(third.wait_for_output("ready"));
}

TEST(NamedBoard, end_ends_its_visitors) {
    board_run board = waiting_board({"--name", own_name("ends")});
    ASSERT_TRUE(board.wait_for_output("ready"));
    std::string printed;
    const std::string kill_it = "kill -KILL 2; exec sleep 1000"; // the board's program
    EXPECT_EQ(enter(own_name("ends"), kill_it, printed), 128 + SIGKILL);
}

} // namespace
