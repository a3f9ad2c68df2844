// The simulated board itself: what a program finds on it, and what it leaves on the machine.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "tests/board_run.h"

namespace {

board_run shell(std::vector<std::string> board_options, const std::string &script) {
    return board_run::program(std::move(board_options), {"/bin/sh", "-c", script});
}

std::string contents(const std::string &path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Whether a process of the machine has the mark among its arguments.
bool is_running(const std::string &mark) {
    DIR *processes = opendir("/proc");
    bool found = false;
    while (const dirent *entry = readdir(processes)) {
        const std::string directory = std::string("/proc/") + entry->d_name;
        found = found || contents(directory + "/cmdline").find(mark) != std::string::npos;
    }
    closedir(processes);
    return found;
}

// A number of seconds to sleep that names this case's processes among all others.
std::string long_sleep() {
    return std::to_string(getpid()) + "9375";
}

struct shared_segment {
    int id = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    ~shared_segment() {
        shmctl(id, IPC_RMID, nullptr);
    }
};

TEST(Board, dev_has_the_common_nodes_and_those_of_its_ports_and_nothing_else) {
    board_run run = shell({"--cable", "2-8", "--loop", "5s", "--port", "3"}, "LC_ALL=C ls /dev");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output,
              "cpuactive\nfull\nlog\nnull\nptmx\npts\nrandom\nshm\nsp2\nsp3\nsp5s\nsp8\n"
              "tty\nurandom\nzero\n");
}

TEST(Board, opt_run_and_r0_are_empty_and_what_is_written_there_stays_there) {
    const std::string mark = "hk_board_case_" + std::to_string(getpid());
    board_run run =
        shell({}, "ls -A /opt /run /r0; for d in /opt /run /r0 /dev/shm; do echo x > $d/" + mark +
                      " && cat $d/" + mark + "; done");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "/opt:\n\n/r0:\n\n/run:\nx\nx\nx\nx\n");
    for (const char *directory : {"/opt/", "/run/", "/r0/", "/dev/shm/"}) {
        EXPECT_NE(access((directory + mark).c_str(), F_OK), 0) << directory;
    }
}

TEST(Board, processes_and_segments_of_the_machine_are_not_seen) {
    const shared_segment of_the_machine;
    board_run run = shell({}, "cd /proc; echo [0-9]*; wc -l < sysvipc/shm");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output.substr(0, 4), "1 2\n"); // the board and the shell
    EXPECT_EQ(atoi(run.output.c_str() + 4), 1);  // the heading
}

TEST(Board, runs_also_where_the_root_has_been_changed) {
    const std::string script = std::string("d=$(mktemp -d); ") + "unshare -m " +
                               (geteuid() != 0 ? "-r " : "") +
                               "sh -c 'mount --rbind / $1 && exec chroot $1 " HK_BOARD_PATH
                               " --quiet -- echo on the board' sh $d 2>&1; rmdir $d";
    FILE *run = popen(script.c_str(), "r");
    ASSERT_NE(run, nullptr);
    std::string output;
    for (int letter = 0; (letter = fgetc(run)) != EOF;) {
        output += static_cast<char>(letter);
    }
    EXPECT_EQ(pclose(run), 0);
    EXPECT_EQ(output, "on the board\n");
}

TEST(Board, commands_that_restart_the_machine_are_only_reported) {
    board_run run = shell({}, "/sbin/reboot && reboot && echo still here");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "still here\n");
    ASSERT_EQ(run.log.size(), 2U);
    EXPECT_EQ(run.log[0].ident, "board");
    EXPECT_EQ(run.log[0].text, "reboot requested");
}

TEST(Board, led_changes_are_shown_and_the_state_can_be_read_back) {
    board_run run = shell({}, "exec 3<>/dev/cpuactive; get() { head -c1 <&3 | od -An -td1; }; "
                              "get; printf '\\001' >&3; get; printf '\\001' >&3; get; get; "
                              "printf '\\000' >&3; get");
    EXPECT_EQ(run.finish(), 0);
    std::erase(run.output, ' ');
    EXPECT_EQ(run.output, "0\n1\n1\n1\n0\n");
    ASSERT_EQ(run.log.size(), 2U);
    EXPECT_EQ(run.log[0].text, "LED on");
    EXPECT_EQ(run.log[1].text, "LED off");
}

TEST(Board, exit_status_is_the_programs) {
    EXPECT_EQ(shell({}, "exit 7").finish(), 7);
    EXPECT_EQ(shell({}, "kill -SEGV $$").finish(), 128 + SIGSEGV);
    board_run missing = board_run::program({}, {"/opt/program"});
    EXPECT_EQ(missing.finish(), 127);
    EXPECT_NE(missing.errors.find("/opt and /run are empty"), std::string::npos);
}

TEST(Board, a_program_whose_time_is_up_is_terminated) {
    board_run run = shell({"--for", "0.2"}, "exec sleep " + long_sleep());
    EXPECT_EQ(run.finish(), 128 + SIGTERM);
}

TEST(Board, a_program_that_ignores_the_end_of_its_time_is_killed_with_status_124) {
    board_run run =
        shell({"--for", "0.2"}, "trap '' TERM; while :; do sleep " + long_sleep() + "; done");
    EXPECT_EQ(run.finish(), 124);
    EXPECT_NE(run.errors.find("did not end"), std::string::npos);
    EXPECT_FALSE(is_running(long_sleep()));
}

TEST(Board, signals_are_passed_on_and_an_interrupt_terminates_the_program) {
    const std::string wait = "; echo ready; while :; do sleep " + long_sleep() + " & wait; done";
    const std::pair<int, int> statuses[] = {{SIGUSR1, 1}, {SIGUSR2, 2}, {SIGALRM, 3},
                                            {SIGTERM, 4}, {SIGINT, 4},  {SIGHUP, 4}};
    for (const auto &[number, status] : statuses) {
        board_run run = shell({}, "trap 'exit 1' USR1; trap 'exit 2' USR2; trap 'exit 3' ALRM; "
                                  "trap 'exit 4' TERM" +
                                      wait);
        ASSERT_TRUE(run.wait_for_output("ready"));
        run.signal(number);
        EXPECT_EQ(run.finish(), status) << "signal " << number;
    }
}

TEST(Board, nothing_is_left_when_hk_board_is_killed) {
    const std::string mounts = contents("/proc/self/mountinfo");
    // A segment known by its size among those that come and go on the machine.
    const std::string segment_bytes = std::to_string(1'000'000 + getpid());
    board_run run =
        shell({"--cable", "2-8"}, "ipcmk -M " + segment_bytes + "; grep " + segment_bytes +
                                      " /proc/sysvipc/shm" +
                                      "; trap '' TERM HUP; (trap '' TERM HUP; exec sleep " +
                                      long_sleep() + ") & echo ready; wait");
    ASSERT_TRUE(run.wait_for_output("ready"));
    ASSERT_TRUE(is_running(long_sleep()));
    run.signal(SIGKILL);
    EXPECT_EQ(run.finish(), 128 + SIGKILL); // comes when the last process has closed its output
    while (is_running(long_sleep())) {      // and is on its way out
        usleep(1000);
    }
    EXPECT_EQ(contents("/proc/self/mountinfo"), mounts);
    EXPECT_NE(run.output.find(segment_bytes), std::string::npos) << "it was there";
    EXPECT_EQ(contents("/proc/sysvipc/shm").find(segment_bytes), std::string::npos);
}

TEST(Board, nothing_is_left_behind_by_a_program_that_ends_before_its_children) {
    board_run run = shell({}, "sleep " + long_sleep() + " & exit 0");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_FALSE(is_running(long_sleep()));
}

TEST(Board, wrong_options_are_refused_with_the_valid_ones) {
    const struct {
        std::vector<std::string> options;
        const char *says;
    } cases[] = {
        {{"--cabel", "2-8"}, "--cable PORT-PORT --loop PORT"},
        {{"--cable", "2-9"}, "no such port: \"9\"; the ports are 1 to 8"},
        {{"--cable", "2-2"}, "two different ports"},
        {{"--cable", "2-8s"}, "of one kind"},
        {{"--cable", "2-8", "--loop", "8"}, "plugged into port 8 already"},
        {{"--fault", "melt:2"}, "flip:PORT:N"},
        {{"--cable", "2-8", "--fault", "flip:2:0"}, "flip:PORT:N"},
        {{"--cable", "2-8", "--fault", "drop:3:10"}, "its ports are: 2 8"},
        {{"--cable", "2-8", "--fault", "lines:2"}, "no cable 2"},
        {{"--mac", "02:00:00"}, "no hardware address"},
        {{"--for", "soon"}, "--for takes seconds"},
    };
    for (const auto &[options, says] : cases) {
        board_run run = shell(options, "echo started");
        EXPECT_EQ(run.finish(), 2) << says;
        EXPECT_NE(run.errors.find(says), std::string::npos) << run.errors;
        EXPECT_EQ(run.output, "");
    }
}

} // namespace
