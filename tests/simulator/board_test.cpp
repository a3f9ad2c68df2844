// The simulated board itself: what a program finds on it, and what it leaves on the machine.
#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sstream>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

board_run shell(std::vector<std::string> board_options, const std::string &script) {
    return board_run::program(std::move(board_options), {"/bin/sh", "-c", script});
}

std::string contents(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// True when a process has read all that was sent to it: no signal waits, see proc(5).
bool signals_are_taken(pid_t process) {
    const std::string status = contents("/proc/" + std::to_string(process) + "/status");
    return status.find("ShdPnd:\t0000000000000000") != std::string::npos;
}

TEST(Board, shows_a_program_a_dev_opt_run_and_r0_of_its_own_and_no_process_or_segment_but_its_own) {
    const int of_the_machine = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    const std::string mark = "hk_board_case_" + std::to_string(getpid());
    board_run run = shell({"--cable", "2-8", "--loop", "5s", "--port", "3"},
                          "cd /proc; echo [0-9]*; echo $(wc -l < sysvipc/shm); "
                          "LC_ALL=C ls -A /dev /opt /r0 /run; "
                          "for d in /opt /run /r0 /dev/shm; do echo x > $d/" +
                              mark + " && cat $d/" + mark + "; done");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "1 2\n1\n" // the board and the shell; the heading
                          "/dev:\ncpuactive\nfd\nfull\nlog\nnull\nptmx\npts\nrandom\nshm\nsp2\n"
                          "sp3\nsp5s\nsp8\nstderr\nstdin\nstdout\ntty\nurandom\nzero\n"
                          "\n/opt:\n\n/r0:\n\n/run:\nx\nx\nx\nx\n");
    for (const char *directory : {"/opt/", "/run/", "/r0/", "/dev/shm/"})
        EXPECT_NE(access((directory + mark).c_str(), F_OK), 0) << directory;
    EXPECT_EQ(shmctl(of_the_machine, IPC_RMID, nullptr), 0);
}

TEST(Board, runs_also_where_the_root_has_been_changed) {
    const std::string script = std::string("d=$(mktemp -d); output=$(unshare -m ") +
                               (geteuid() != 0 ? "-r " : "") +
                               "sh -c 'mount --rbind / $1 && exec chroot $1 " HK_BOARD_PATH
                               " --quiet -- echo on the board' sh $d) && rmdir $d && "
                               "test \"$output\" = 'on the board'";
    EXPECT_EQ(system(script.c_str()), 0);
}

TEST(Board, restarts_and_led_changes_are_only_shown_and_the_led_can_be_read_back) {
    board_run run =
        shell({}, "/sbin/reboot && reboot && "
                  "exec 3<>/dev/cpuactive; get() { echo $(head -c1 <&3 | od -An -td1); }; "
                  "get; printf '\\001' >&3; get; printf '\\001' >&3; get; get; "
                  "printf '\\000' >&3; get");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "0\n1\n1\n1\n0\n");
    EXPECT_EQ(run.notes(), "reboot requested\nreboot requested\nLED on\nLED off\n");
}

// An end is seen when the last process of a run has closed its output.
TEST(Board, exit_status_is_the_programs_or_of_its_end_and_no_process_is_left) {
    const struct {
        std::vector<std::string> options;
        const char *script;
        int status;
        const char *says;
    } cases[] = {
        {{}, "sleep 1000 & exit 7", 7, ""},
        {{}, "kill -SEGV $$", 128 + SIGSEGV, ""},
        {{"--for", "0.2"}, "exec sleep 1000", 128 + SIGTERM, ""},
        {{"--for", "0.2"}, "trap '' TERM; while :; do sleep 1000; done", 124, "did not end"},
    };
    for (const auto &c : cases) {
        board_run run = shell(c.options, c.script);
        EXPECT_EQ(run.finish(), c.status) << c.script;
        EXPECT_NE(run.errors.find(c.says), std::string::npos) << run.errors;
    }
    board_run missing = board_run::program({}, {"/opt/program"});
    EXPECT_EQ(missing.finish(), 127);
    EXPECT_NE(missing.errors.find("/opt and /run are empty"), std::string::npos);
}

TEST(Board, signals_are_passed_on_and_an_interrupt_terminates_the_program) {
    const std::pair<int, int> statuses[] = {{SIGUSR1, 1}, {SIGUSR2, 2}, {SIGALRM, 3},
                                            {SIGTERM, 4}, {SIGINT, 4},  {SIGHUP, 4}};
    for (const auto &[number, status] : statuses) {
        board_run run = shell({}, "trap 'exit 1' USR1; trap 'exit 2' USR2; trap 'exit 3' ALRM; "
                                  "trap 'exit 4' TERM; echo ready; "
                                  "while :; do sleep 1000 & wait; done");
        ASSERT_TRUE(run.wait_for_output("ready"));
        run.signal(number);
        EXPECT_EQ(run.finish(), status) << "signal " << number;
    }
}

TEST(Board, a_sigterm_limits_the_run_to_5_s_and_a_second_interrupt_ends_it_at_once) {
    const std::string deaf = "trap '' TERM; echo ready; while :; do sleep 1000; done";
    board_run terminated = shell({}, deaf);
    // In the machine's time: the second interrupt comes before the 5 s are over.
    board_run interrupted = shell({"--clock", "real"}, deaf);
    ASSERT_TRUE(terminated.wait_for_output("ready") && interrupted.wait_for_output("ready"));
    terminated.signal(SIGTERM);
    interrupted.signal(SIGINT);
    const pid_t inside = child_of(interrupted.board_id());
    while (!signals_are_taken(interrupted.board_id()) || !signals_are_taken(inside))
        sched_yield();
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.finish(), 128 + SIGKILL);
    EXPECT_NE(interrupted.errors.find("interrupted again"), std::string::npos);
    EXPECT_EQ(terminated.finish(), 124);
}

TEST(Board, hangs_a_port_up_when_the_window_begins_though_nothing_else_happens) {
    board_run run = board_run::program(
        {"--cable", "2-8", "--fault", "hangup:2:1@5-", "--fault", "hangup:2:9"},
        {"python3", "-c",
         "import os, tty; port = os.open('/dev/sp2', os.O_RDWR); tty.setraw(port)\n"
         "os.write(port, b'x'); print(os.read(port, 1))"});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    EXPECT_EQ(run.output, "b''\n");
    for (const char *line : {"fault hangup:2:1 struck 1 time", "fault hangup:2:9 never struck"})
        EXPECT_EQ(std::ranges::count(run.log, line, &log_line::text), 1) << line;
    EXPECT_EQ(run.log.back().time_ms - run.log.front().time_ms, 5000);
}

TEST(Board, an_ignored_hangup_stays_ignored) {
    struct sigaction before {};
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGHUP, &ignored, &before);
    board_run run = shell(
        {}, "trap 'exit 4' TERM; kill -HUP $$; echo ready; while :; do sleep 1000 & wait; done");
    sigaction(SIGHUP, &before, nullptr);
    ASSERT_TRUE(run.wait_for_output("ready"));
    run.signal(SIGHUP);
    run.signal(SIGTERM);
    EXPECT_EQ(run.finish(), 4);
}

TEST(Board, a_child_that_cannot_become_the_program_ends_the_run_with_status_125) {
    const char *commands[] = {
        "cd $(mktemp -d /dev/shm/board_XXXXXX) && trap \"rmdir $PWD\" EXIT; " HK_BOARD_PATH
        " -- true",
        "(" HK_BOARD_PATH " --quiet -- " HK_BOARD_PATH " -- true; echo status $?) 2>&1 | xargs | "
        "grep -q 'a board cannot run on a board.*status 125' && exit 125",
        "setarch --uname-2.6 " HK_BOARD_PATH " -- true",
    };
    for (const char *command : commands)
        EXPECT_EQ(WEXITSTATUS(system(command)), 125) << command;
}

// What a program may reach through them is the machine's own.
TEST(Board, the_name_and_the_kernels_settings_of_the_machine_cannot_be_changed) {
    char before[HOST_NAME_MAX + 1];
    char after[HOST_NAME_MAX + 1];
    ASSERT_EQ(gethostname(before, sizeof before), 0);
    board_run run = shell({}, "hostname hk-board-case; mount -o remount,rw /sys; umount /proc/sys; "
                              "mount -o remount,bind,rw /proc/sys; mount -t sysfs none /r0; "
                              "unshare -m true; true 3<>/proc/1/mem; "
                              "touch /proc/sys/kernel/panic /proc/sys/vm/swappiness; "
                              "for d in $(awk '$9 == \"sysfs\" || $5 ~ \"^/(sys|proc/sys)\" "
                              "{ print $6 }' /proc/self/mountinfo); do echo $d | cut -c1-2; done "
                              "| sort -u; grep -c ' /r0 ' /proc/self/mountinfo");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "ro\n1\n");
    for (const char *refused :
         {"hostname: ", "mount: /sys: ", "umount: /proc/sys: ", "mount: /proc/sys: ",
          "mount: /r0: ", "unshare failed: ", "/proc/1/mem: Permission denied",
          "swappiness': Read-only file system"})
        EXPECT_NE(run.errors.find(refused), std::string::npos) << refused << run.errors;
    ASSERT_EQ(gethostname(after, sizeof after), 0);
    EXPECT_STREQ(after, before);
}

// There a program has all rights again, but none of the calls that mount. The numbers are those of
// all processors.
TEST(Board, a_namespace_of_the_programs_own_does_not_let_it_mount) {
    board_run run = board_run::program({}, {MOUNT_PROBE_PATH});
    EXPECT_EQ(run.finish(), 0) << run.output << run.errors;
}

TEST(Board, a_program_finds_what_it_has_open_below_dev_and_closed_output_stays_closed) {
    board_run run = shell({}, "echo from stdin | cat /dev/stdin; echo to stdout >>/dev/stdout; "
                              "echo to fd | cat /dev/fd/0; echo to stderr >>/dev/stderr");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "from stdin\nto stdout\nto fd\n");
    EXPECT_EQ(run.errors, "to stderr\n");
    const std::string log = "/tmp/hk_board_closed_" + std::to_string(getpid());
    const std::string command =
        HK_BOARD_PATH " --log " + log + " -- sh -c 'reboot; test ! -e /dev/stdout' >&- 2>&-";
    EXPECT_EQ(system(command.c_str()), 0);
    const std::string lines = contents(log);
    EXPECT_NE(lines.find("board: reboot requested\n"), std::string::npos);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1) << lines;
    unlink(log.c_str());
}

// Runs a script that has a file system of 64 KiB of its own at $d. Returns what it prints.
std::string on_a_small_disk(const std::string &script) {
    const std::string command = std::string("d=$(mktemp -d) && unshare -m ") +
                                (geteuid() != 0 ? "-r " : "") +
                                "sh -c 'mount -t tmpfs -o size=64k tmpfs $1 && d=$1 && " + script +
                                "' sh $d 2>&1; rmdir $d";
    FILE *printed = popen(command.c_str(), "r");
    std::string text;
    for (int letter; (letter = fgetc(printed)) != EOF;)
        text += static_cast<char>(letter);
    pclose(printed);
    return text;
}

TEST(Board, the_log_file_keeps_every_line_also_while_the_disk_is_full) {
    const std::string three_lines = "reboot; reboot; reboot";
    const std::string run = HK_BOARD_PATH " --quiet --log ";
    const std::string room_again =
        on_a_small_disk("{ cat /dev/zero >$d/all 2>/dev/null; " + run + "$d/log -- sh -c \"" +
                        three_lines + "; rm $d/all; reboot\"; grep -c reboot $d/log; }");
    EXPECT_NE(room_again.find("log: No space left on device; its lines wait"), std::string::npos);
    EXPECT_EQ(room_again.substr(room_again.find('\n') + 1), "4\n") << room_again;
    const std::string never = on_a_small_disk(run + "/dev/full -- sh -c \"" + three_lines + "\"");
    EXPECT_NE(never.find("3 lines are not in /dev/full"), std::string::npos) << never;
    EXPECT_EQ(std::count(never.begin(), never.end(), '\n'), 2) << never;
}

// An end is seen when the last process of a run has closed its output.
TEST(Board, nothing_is_left_when_any_of_its_processes_is_killed) {
    const std::string mounts = contents("/proc/self/mountinfo");
    const struct {
        int depth; // of the killed process: hk_board outside, the board, the program
        int status;
        std::vector<std::string> clock;
    } cases[] = {
        // In the machine's time too: there the board waits elsewhere.
        {0, 128 + SIGKILL, {"--clock", "real"}},
        {1, 125, {"--clock", "real"}},
        {2, 128 + SIGKILL, {"--clock", "real"}},
        {0, 128 + SIGKILL, {"--clock", "virtual", "--speed", "1"}},
        {1, 125, {"--clock", "virtual", "--speed", "1"}},
        {2, 128 + SIGKILL, {"--clock", "virtual", "--speed", "1"}},
    };
    for (const auto &[depth, status, clock] : cases) {
        std::vector<std::string> options = {"--cable", "2-8"};
        options.insert(options.end(), clock.begin(), clock.end());
        board_run run = shell(options, "trap '' TERM HUP; sleep 1000 & echo ready; wait");
        ASSERT_TRUE(run.wait_for_output("ready"));
        pid_t victim = run.board_id();
        for (int i = 0; i < depth; i++)
            victim = child_of(victim);
        ASSERT_GT(victim, 0);
        kill(victim, SIGKILL);
        EXPECT_EQ(run.finish(), status) << depth;
    }
    EXPECT_EQ(contents("/proc/self/mountinfo"), mounts);
}

} // namespace
