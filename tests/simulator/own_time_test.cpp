// The board's own time (--clock virtual): sleeping calls take the time that they take on a machine,
// and a command has one log, whatever else the machine does.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

constexpr int NOT_MODELLED = 123;
constexpr bool IS_EMULATED = sizeof(HK_EMULATOR) > 1;

std::vector<std::string> in_own_time(std::vector<std::string> options) {
    options.insert(options.begin(), {"--clock", "virtual", "--strict"});
    return options;
}

// Processes that compute for as long as it lives.
class busy_machine {
public:
    explicit busy_machine(int count) {
        for (int i = 0; i < count; i++)
            processes.push_back(start());
    }
    ~busy_machine() {
        for (const pid_t each : processes) {
            kill(each, SIGKILL);
            waitpid(each, nullptr, 0);
        }
    }
    busy_machine(const busy_machine &) = delete;
    busy_machine &operator=(const busy_machine &) = delete;

private:
    static pid_t start() {
        const pid_t busy = fork();
        if (busy != 0)
            return busy;
        for (volatile unsigned turns = 0;;) {
            const unsigned next = turns + 1;
            turns = next;
        }
    }
    std::vector<pid_t> processes;
};

std::vector<std::string> log_of(const std::vector<std::string> &options,
                                const std::vector<std::string> &command) {
    board_run run = board_run::program(in_own_time(options), command);
    EXPECT_EQ(run.finish(), 0) << run.errors;
    std::vector<std::string> lines;
    for (const log_line &line : run.log)
        lines.push_back(std::to_string(line.time_ms) + " " + line.ident + ": " + line.text);
    return lines;
}

// What the manual pages and a machine say; the times are in hundredths of a second.
constexpr const char *SLEEPS = "nanosleep: ok 20\n"
                               "nanosleep with an alarm: EINTR 5\n"
                               "what is left: 15\n"
                               "clock_nanosleep until a moment: ok 100\n"
                               "nanosleep of nothing: ok 0\n"
                               "poll: ok 10\n"
                               "ppoll: ok 15\n"
                               "poll of nothing: ok 7\n"
                               "select: ok 12\n"
                               "pselect: ok 15\n"
                               "poll with an alarm: EINTR 8\n"
                               "poll until a write: ok 9\n"
                               "pause: EINTR 11\n"
                               "nanosleep with a blocked alarm: ok 10\n"
                               "sigsuspend with a waiting alarm: EINTR 0\n"
                               "sigsuspend: EINTR 13\n"
                               "sigtimedwait: EAGAIN 10\n"
                               "sigtimedwait with an alarm: ok 4\n"
                               "ppoll that lets an alarm through: EINTR 6\n"
                               "pselect that lets an alarm through: EINTR 6\n"
                               "alarms handled: 4\n"
                               "alarms of a period in 20: 6\n"
                               "alarm left: 3\n"
                               "wait with an alarm: EINTR 7\n"
                               "wait again: ok 8\n"
                               "wait with an alarm that restarts it: ok 15\n"
                               "nanosleep during which it is stopped: ok 20\n"
                               "wait without a child: ECHILD 0\n"
                               "waitpid that does not wait: ok 0\n"
                               "wait for a killed child: ok 0\n"
                               "system: ok 10\n"
                               "condition: 12\n"
                               "condition with a limit: 9\n"
                               "join: 8\n"
                               "program started beside a thread: ok 10\n"
                               "program started by a second thread: ok 10\n"
                               "tcdrain: ok 50\n"
                               "read of a byte: ok 3\n"
                               "read with an alarm: EINTR 8\n"
                               "clock_nanosleep until a date: ok 11\n"
                               "clock_nanosleep until a date: ok 11\n"
                               "sem_timedwait: ETIMEDOUT 14\n"
                               "sem_timedwait until the past: ETIMEDOUT 0\n"
                               "nanosleep of too long a part: EINVAL 0\n"
                               "nanosleep of a negative time: EINVAL 0\n"
                               "clock_nanosleep on no clock: EINVAL 0\n"
                               "clock_nanosleep on a clock without timers: EOPNOTSUPP 0\n"
                               "setitimer of too long a part: EINVAL 0\n"
                               "clock_gettime of no clock: EINVAL 0\n"
                               "ppoll of too long a part: EINVAL 0\n"
                               "poll at a bad address: EFAULT 0\n"
                               "select of -1 descriptors: EINVAL 0\n"
                               "select of a negative time: EINVAL 0\n"
                               "select of a long part: ok 110\n"
                               "sem_timedwait of too long a part: EINVAL 0\n"
                               "sigtimedwait that does not wait: EAGAIN 0\n"
                               "sigtimedwait of nothing with a waiting signal: ok 0\n"
                               "sigtimedwait with the alarm of a handler: EINTR 7\n"
                               "sigtimedwait for the end of a child: ok 6\n"
                               "wait for a stop: ok 0\n"
                               "wait for a continuation: ok 9\n"
                               "wait for the end: ok 6\n"
                               "pause with a timer: EINTR 7\n"
                               "signals of a timer in 20: 6, next in 3\n"
                               "ends of a timer that were not signalled: 2\n"
                               "timer that starts a thread: ok 8\n"
                               "program with a limit: ok 50\n"
                               "epoll_wait: ok 6\n"
                               "epoll_wait with an alarm: EINTR 8\n"
                               "epoll_wait until a write: ok 9\n"
                               "sem_timedwait in which it is stopped: ok 20\n"
                               "futex in which it is stopped: ok 20\n"
                               "semaphore at another address: ok 6\n";

// The emulator carries out poll(2) as ppoll(2), for which the time of a stop does not count.
constexpr const char *STOPPED_POLLS = IS_EMULATED ? "poll during which it is stopped: ok 27\n"
                                                    "poll that ends while it is stopped: ok 17\n"
                                                  : "poll during which it is stopped: ok 20\n"
                                                    "poll that ends while it is stopped: ok 12\n";

TEST(OwnTime, gives_every_sleeping_call_its_time_also_on_a_busy_machine) {
    const busy_machine busy(4);
    for (const char *program : {SLEEP_OBSERVER_PATH, STATIC_SLEEP_OBSERVER_PATH}) {
        if (*program == '\0')
            continue;
        board_run run =
            board_run::program(in_own_time({"--cable", "1-2"}), own_program(program, {}));
        EXPECT_EQ(run.finish(), 0) << run.errors;
        EXPECT_EQ(run.output, std::string(SLEEPS).append(STOPPED_POLLS)) << program;
    }
}

// An emulator has locks of its own, and hands no adoption to the kernel.
TEST(OwnTime, gives_waits_their_time_that_the_kernel_alone_knows) {
    if (IS_EMULATED)
        GTEST_SKIP() << "the emulator does not make these calls";
    board_run run =
        board_run::program(in_own_time({}), own_program(SLEEP_OBSERVER_PATH, {"kernel"}));
    EXPECT_EQ(run.finish(), 0) << run.errors;
    EXPECT_EQ(run.output, "lock of another thread: ok 7\n"
                          "wait for an adopted child: ok 12\n");
}

struct repeated_run {
    const char *name;
    std::vector<std::string> board;
    std::vector<std::string> arguments; // of hk_stress
    size_t lists;                       // that it writes at least
};

std::ostream &operator<<(std::ostream &stream, const repeated_run &each) {
    return stream << each.name;
}

const repeated_run REPEATED_RUNS[] = {
    {"crossover", {"--cable", "2-8"}, {"-E28"}, 3},
    {"main_job",
     {"--cable", "2-8", "--loop", "5s", "--cable", "1-4"},
     {"-C1", "-P4", "-h", "-E55", "-h", "-E28"},
     3},
    {"fio", {"--fio", "20=221"}, {"-F"}, 3},
    {"spi_fio", {"--spi", "219"}, {"-L"}, 3},
    {"memories",
     {"--datakey", "present", "--eeprom", "good", "--fault", "gone:datakey@2-4"},
     {"-S1", "-S2"},
     3},
    {"memories_that_fail_beside_ports",
     {"--cable", "2-8", "--datakey", "present", "--eeprom", "good", "--fault", "fail:datakey:7",
      "--fault", "slow:eeprom:20@2-6"},
     {"-S1", "-S2", "-E28"},
     3},
    {"spi_loopbacks", {"--spi", "loop", "--spi", "reserved=loop"}, {"-S8", "-S4"}, 3},
    {"released_storage", {"--release"}, {"-Y/r0/dir", "-M/r0/a:/r0/b:1"}, 3},
    {"released_dram", {"--release"}, {"-D"}, 3},
    {"panel", {"--keys", "s @1 \\e[A @2.5 \\r"}, {"-K"}, 3},
    {"faults",
     {"--cable", "2-8", "--fault", "flip:2:10@2-4", "--fault", "drop:8:1~9000", "--fault",
      "gone:log@5-6", "--fault", "gone:led@6-7"},
     {"-E28"},
     3},
};

#if defined(HK_SANITIZED)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

struct RepeatedRun : testing::TestWithParam<repeated_run> {};

TEST_P(RepeatedRun, has_the_same_log_alone_and_beside_busy_processes) {
    if (IS_EMULATED || IS_SANITIZED)
        GTEST_SKIP() << "ExpectedRuns compares the logs of this program with those of the host's";
    const repeated_run &wanted = GetParam();
    std::vector<std::string> options = wanted.board;
    options.insert(options.end(), {"--for", "10"});
    std::vector<std::string> arguments = {"-d1", "-l4"};
    arguments.insert(arguments.end(), wanted.arguments.begin(), wanted.arguments.end());
    const std::vector<std::string> command = own_program(HK_STRESS_PATH, arguments);
    const std::vector<std::string> alone = log_of(options, command);
    const busy_machine busy(4);
    EXPECT_EQ(log_of(options, command), alone);
    const auto lists = std::count_if(alone.begin(), alone.end(), [](const std::string &line) {
        return line.find("</OL>") != std::string::npos;
    });
    EXPECT_GE(static_cast<size_t>(lists), wanted.lists);
}

INSTANTIATE_TEST_SUITE_P(Each, RepeatedRun, testing::ValuesIn(REPEATED_RUNS),
                         [](const auto &of) { return std::string(of.param.name); });

TEST(OwnTime, is_the_same_for_a_script_that_starts_and_stops_runs) {
    const std::string stress = own_program(HK_STRESS_PATH, {}).back();
    const std::string run = (IS_EMULATED ? std::string(HK_EMULATOR) + " " : "") + stress;
    const std::vector<std::string> script = {"/bin/sh", "-c",
                                             run + " -d1 -l4 -E28 & first=$!; " + run +
                                                 " -d1 -l4 -C1 & second=$!; sleep 5; " +
                                                 "kill -USR1 $first; kill -TERM $second; sleep 2; "
                                                 "kill -TERM $first; wait; echo $(date)"};
    const std::vector<std::string> alone = log_of({"--cable", "2-8", "--port", "1"}, script);
    const busy_machine busy(4);
    EXPECT_EQ(log_of({"--cable", "2-8", "--port", "1"}, script), alone);
}

// Beside ports the board does not stop the close of another file. The test opens the key every 5
// ms.
TEST(OwnTime, has_a_memory_fail_at_each_opening_beside_ports) {
    board_run run = board_run::program(in_own_time({"--cable", "2-8", "--datakey", "present",
                                                    "--fault", "fail:datakey:1@1-2", "--for", "3"}),
                                       own_program(HK_STRESS_PATH, {"-d1", "-S1"}));
    EXPECT_EQ(run.finish(), 0);
    const bool struck = std::any_of(run.log.begin(), run.log.end(), [](const auto &line) {
        return line.text == "fault fail:datakey:1 struck 200 times";
    });
    EXPECT_TRUE(struck);
}

TEST(OwnTime, names_a_sleeping_call_that_it_does_not_know_and_strict_makes_it_an_error) {
    const std::pair<const char *, const char *> sleeps[] = {
        {"semaphore", "semtimedop waited 1 time "},
        {"profile", "setitimer of processor time waited 1 time "},
        {"timerfd", "timerfd_settime waited 1 time "},
    };
    for (const auto &[how, says] : sleeps) {
        board_run run =
            board_run::program(in_own_time({}), own_program(SLEEP_OBSERVER_PATH, {how}));
        EXPECT_EQ(run.finish(), NOT_MODELLED);
        EXPECT_NE(run.errors.find(says), std::string::npos) << run.errors;
    }
}

TEST(OwnTime, begins_a_program_without_a_c_library_at_its_first_call) {
    if (IS_EMULATED || sizeof(BARE_PROGRAM_PATH) == 1)
        GTEST_SKIP() << "the program is an x86-64 one without sanitizers";
    board_run run = board_run::program(
        in_own_time({}), own_program(SLEEP_OBSERVER_PATH, {"spawn", BARE_PROGRAM_PATH}));
    EXPECT_EQ(run.finish(), 0) << run.errors;
    EXPECT_EQ(run.output, "start: ok 0\nits end: ok 20\n");
}

TEST(OwnTime, lets_a_spin_on_the_time_end_after_as_many_reads_as_if_each_were_a_call) {
    const std::string calls = "/tmp/hk_spin_" + std::to_string(getpid());
    for (const std::vector<std::string> &options :
         {in_own_time({}), in_own_time({"--calls", calls})}) {
        board_run run = board_run::program(options, own_program(SLEEP_OBSERVER_PATH, {"spin"}));
        EXPECT_EQ(run.finish(), 0);
        EXPECT_EQ(run.output, "reads of the clock: 3000\n"
                              "reads of the calendar in a child: 3000\n");
    }
    unlink(calls.c_str());
}

TEST(OwnTime, reports_a_file_of_calls_that_could_not_be_written) {
    board_run run = board_run::program(in_own_time({"--calls", "/dev/full"}), {"sleep", "1"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_NE(run.errors.find("/dev/full lacks lines"), std::string::npos) << run.errors;
}

TEST(OwnTime, lists_the_calls_that_are_held_when_the_run_ends) {
    const std::string calls = "/tmp/hk_held_" + std::to_string(getpid());
    board_run run = board_run::program(
        in_own_time({"--calls", calls, "--for", "1"}),
        {"perl", "-e", "$SIG{TERM} = 'IGNORE'; select(undef, undef, undef, 100)"});
    EXPECT_EQ(run.finish(), 124) << run.errors;
    EXPECT_EQ(system(("tail -n 1 " + calls + " | grep -q ' = ? <6.0'").c_str()), 0);
    unlink(calls.c_str());
}

// Ending takes the machine's time, in which the five seconds of the board's own could pass.
TEST(OwnTime, stands_still_while_a_program_that_the_end_of_the_run_has_killed_is_ending) {
    board_run run = board_run::program(in_own_time({"--for", "1"}), {"sleep", "9"});
    EXPECT_EQ(run.finish(), 128 + SIGTERM) << run.errors;
}

// Five runs: without the wait some of them end with the right time.
TEST(OwnTime, stands_still_while_a_program_that_its_own_alarm_has_killed_is_ending) {
    for (int i = 0; i < 5; i++) {
        board_run run =
            board_run::program(in_own_time({"--for", "3"}), {"perl", "-e", "alarm 2; sleep 100"});
        EXPECT_EQ(run.finish(), 128 + SIGALRM) << run.errors;
        ASSERT_FALSE(run.log.empty());
        EXPECT_EQ(run.log.back().time_ms, 2000);
    }
}

// The end of the first child must not interrupt the kill of the second. An ordinary user's board
// does not have the priority that would hide it.
TEST(OwnTime, kills_one_process_before_the_program_goes_on) {
    (void)prctl(PR_CAPBSET_DROP, CAP_SYS_NICE);
    board_run run = board_run::program(
        in_own_time({}),
        {"sh", "-c",
         "for i in 1 2 3 4 5 6 7 8 9 10; do sleep 9 & one=$!; sleep 9 & kill -KILL $one $!; done; "
         "kill -KILL 1000 || unshare --user --pid --fork sh -c 'sleep 1 & kill -KILL $!; echo "
         "$!'"});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    EXPECT_EQ(run.errors.find("Interrupted"), std::string::npos) << run.errors;
    EXPECT_EQ(run.output, "2\n");
}

// The parent's write is not stopped: it ends before its next stopped call.
TEST(OwnTime, finds_the_child_of_a_parent_that_a_broken_pipe_ends) {
    board_run run = board_run::program(
        in_own_time({}), {"perl", "-e",
                          "if (fork) { wait; sleep 5; exit $? >> 8 } pipe(R, W); close R; "
                          "fork or exec 'sh', '-c', 'sleep 2; logger late'; syswrite W, 'x'"});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    ASSERT_EQ(std::ranges::count(run.log, "late", &log_line::text), 1);
    const auto late = std::ranges::find(run.log, "late", &log_line::text);
    EXPECT_EQ(late->time_ms - run.log.front().time_ms, 2000);
}

// Each byte or two go to the terminal in a write of their own, while the board's tick goes on.
TEST(OwnTime, brings_every_byte_to_a_copy_with_a_low_number) {
    board_run run = board_run::program(
        in_own_time({"--cable", "2-8"}),
        {"/bin/sh", "-c",
         "for port in 2 8; do stty -F /dev/sp$port 115200 raw -echo; done; exec 3<>/dev/sp8\n"
         "head -c 15000 /dev/zero >/dev/sp2 & head -c 15000 <&3 | wc -c"});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    EXPECT_EQ(run.output, "15000\n");
}

// The board's time goes on while the program sleeps, so that one of the signals finds another
// second.
TEST(OwnTime, gives_a_signal_from_outside_the_present_when_it_is_paced) {
    board_run run = board_run::program(
        {"--clock", "virtual", "--speed", "1000"},
        {"/bin/sh", "-c",
         "begin=$(date +%s); sleep 100000 & child=$!; "
         "trap 'echo $((n += 1)).; [ $(date +%s) = $begin ] || { kill $child; exit 0; }' USR1; "
         "echo ready; while :; do wait; done"});
    ASSERT_TRUE(run.wait_for_output("ready\n"));
    const auto latest = std::chrono::steady_clock::now() + wait_limit();
    int sent = 0;
    do {
        usleep(10'000); // one signal at once after another would keep the program awake
        run.signal(SIGUSR1);
    } while (run.wait_for_output("\n" + std::to_string(++sent) + ".") &&
             std::chrono::steady_clock::now() < latest);
    EXPECT_LT(std::chrono::steady_clock::now(), latest);
    EXPECT_EQ(run.finish(), 0) << run.output << run.errors;
}

// Sends with write(2), on which the board does not stop a program.
const std::string LOG_WRITER =
    "use Socket; socket(S, AF_UNIX, SOCK_DGRAM, 0); connect(S, sockaddr_un('/dev/log')); "
    "for (1..$ARGV[0]) { syswrite(S, '<13>hk: ' . 'm' x $ARGV[1]); select(undef, undef, undef, "
    "0.25) }";

TEST(OwnTime, gives_a_message_that_is_written_to_the_log_its_moment) {
    board_run run = board_run::program(in_own_time({}), {"perl", "-e", LOG_WRITER, "4", "1"});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    std::vector<int64_t> times_ms;
    for (const log_line &line : run.log)
        if (line.ident == "hk")
            times_ms.push_back(line.time_ms - run.log.front().time_ms);
    EXPECT_EQ(times_ms, (std::vector<int64_t>{0, 250, 500, 750}));
}

// The shell reads byte by byte.
TEST(OwnTime, waits_for_a_slow_reader_of_the_log) {
    const std::string log = "/tmp/hk_slow_reader_" + std::to_string(getpid());
    (void)setenv("LOG_WRITER", LOG_WRITER.c_str(), 1);
    const std::string command = HK_BOARD_PATH " --clock virtual --log " + log +
                                " -- perl -e \"$LOG_WRITER\" 3000 1000 | "
                                "{ while read -r line; do n=$((n + 1)); done; test $n = $(wc -l <" +
                                log + "); }";
    EXPECT_EQ(system(command.c_str()), 0);
    EXPECT_NE(system(("grep 'could not be shown' " + log).c_str()), 0);
    unlink(log.c_str());
}

TEST(OwnTime, waits_for_a_slow_reader_of_what_the_program_prints) {
    const int status = system(HK_BOARD_PATH " --clock virtual --quiet --for 10 -- seq 50000 | "
                                            "{ while read -r line; do last=$line; done; "
                                            "test $last = 50000; }");
    EXPECT_EQ(status, 0);
}

TEST(OwnTime, starts_at_a_date_that_can_be_chosen) {
    board_run run = board_run::program(in_own_time({"--start", "2030-02-03 04:05:06"}),
                                       {"/bin/sh", "-c", "sleep 3600; date +%F.%T"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "2030-02-03.05:05:06\n");
}

TEST(OwnTime, repeats_the_run_of_a_log_and_finds_the_line_that_differs) {
    const std::string log = "/tmp/hk_own_time_" + std::to_string(getpid());
    const std::string first = HK_BOARD_PATH " --clock virtual --quiet --log " + log +
                              " -- sh -c 'sleep 2; /sbin/reboot' 2>&1";
    const std::string again = HK_BOARD_PATH " --replay " + log + " >" + log + ".said";
    EXPECT_EQ(system(first.c_str()), 0);
    EXPECT_EQ(system(again.c_str()), 0);
    EXPECT_EQ(system(("sed -i '$d' " + log).c_str()), 0); // as if its run had been killed
    EXPECT_EQ(system(again.c_str()), 0);
    EXPECT_EQ(system(("sed -i 2s/reboot/halt/ " + log).c_str()), 0);
    EXPECT_EQ(WEXITSTATUS(system(again.c_str())), 1);
    std::ifstream said(log + ".said");
    std::string line;
    std::getline(said, line);
    EXPECT_EQ(line, "line 2 differs");
    EXPECT_EQ(system(("sed -i '1s/--clock/--port 9 --clock/' " + log).c_str()), 0);
    EXPECT_EQ(WEXITSTATUS(system(again.c_str())), 2); // the run cannot be started
    unlink(log.c_str());
    unlink((log + ".said").c_str());
}

} // namespace
