// hk_ctl on a table that the case itself owns: which processes belong to it, and watch.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/run/runs.h"
#include "ctl/text.h"
#include "tests/support/terminal_run.h"

namespace {

// The table of a run whose supervisor is this process. It stays attached until removed.
struct own_table {
    int id = shmget(IPC_PRIVATE, sizeof(StatusTable), IPC_CREAT | 0600);
    StatusTable *table = static_cast<StatusTable *>(shmat(id, nullptr, 0));

    own_table() {
        table->records[0].pid = getpid();
        table->records[1].test_letter = static_cast<int32_t>(record_letter::DRAM);
    }
    own_table(const own_table &) = delete;
    own_table &operator=(const own_table &) = delete;
    ~own_table() {
        remove();
    }
    void remove() const {
        (void)shmdt(table);
        (void)shmctl(id, IPC_RMID, nullptr);
    }
    stress_run run() const {
        for (stress_run &each : find_runs().runs)
            if (each.memory.id == id)
                return std::move(each);
        return {};
    }
};

pid_t start_test() {
    const pid_t child = fork(); // it has the table attached too
    if (child == 0)
        for (;;)
            (void)pause();
    return child;
}

// Another program that attaches the segment.
pid_t start_reader(int segment) {
    const std::string script = text_of("import ctypes, os, signal\n"
                                       "ctypes.CDLL(None).shmat(%d, None, 0o10000)\n"
                                       "print(os.getpid(), flush=True); signal.pause()",
                                       segment);
    FILE *output = popen(("exec python3 -c '" + script + "'").c_str(), "r");
    int pid = 0;
    EXPECT_EQ(fscanf(output, "%d", &pid), 1);
    return pid; // the stream stays open: closing it would wait for the reader
}

TEST(Run, has_the_processes_of_its_program_but_no_reader) {
    const own_table memory;
    const pid_t tests[] = {start_test(), start_test()}; // the second one's pid is in no record
    const pid_t reader = start_reader(memory.id);
    memory.table->records[1].pid = tests[0];
    { const hold_words words(memory.run().memory, false); }
    const stress_run run = memory.run();
    EXPECT_EQ(run.test_processes.size(), std::size(tests));
    uint32_t unseen = 1'000'000'000;
    for (const process &each : processes_with_segments(unseen))
        EXPECT_TRUE(each.pid != getpid() || each.shm.size() == 1) << "it has left one attached";
    EXPECT_LT(unseen, 1'000'000'000U);
    for (const pid_t pid : {tests[0], tests[1], reader})
        (void)kill(pid, SIGKILL);
    for (const process &each : run.test_processes) {
        EXPECT_EQ(std::count(std::begin(tests), std::end(tests), each.pid), 1) << each.pid;
        auto command = split_at_zeros(each.command);
        command.erase(command.begin());
        EXPECT_EQ(run.options, command);
        siginfo_t ended;
        (void)waitid(P_PID, static_cast<id_t>(each.pid), &ended, WEXITED | WNOWAIT);
        EXPECT_FALSE(is_running(each)) << "it is a zombie";
        errno = 0;
        EXPECT_FALSE(send_signal(each, SIGTERM));
        EXPECT_EQ(errno, ESRCH);
    }
    while (wait(nullptr) > 0) {
    }
}

TEST(Run, has_the_owner_of_its_segment) {
    const own_table memory;
    shmid_ds about = {};
    (void)shmctl(memory.id, IPC_STAT, &about);
    about.shm_perm.uid = 1;
    (void)shmctl(memory.id, IPC_SET, &about);
    (void)shmctl(memory.id, IPC_STAT, &about);
    EXPECT_EQ(memory.run().memory.owner, about.shm_perm.uid);
}

// The sanitizer's look for leaks may not end when the terminal has hung up.
std::string watch(const char *every) {
    return text_of("ASAN_OPTIONS=detect_leaks=0 " HK_EMULATOR " " HK_CTL_PATH
                   " watch @%d --every %s",
                   getpid(), every);
}

// The screen after the keys, of a watch that does not look meanwhile.
std::string screen_after(terminal_run &run, const char *keys) {
    run.screen.clear();
    run.type(keys);
    EXPECT_TRUE(run.wait_for("\033[J")) << run.screen;
    return run.screen;
}

TEST(Keys, select_records_of_the_table_and_write_the_hold_words_of_their_tests) {
    const own_table memory;
    for (const size_t record : {2U, 3U}) // a pair
        memory.table->records[record].test_letter = static_cast<int32_t>(record_letter::CROSSOVER);
    memory.table->records[3].kind_code = 5;
    const struct {
        const char *key;
        const char *selected;
        const char *note;
        std::array<int32_t, 3> holds;
    } cases[] = {
        {"k", "1 dram", "", {}},
        {"h", "1 dram", "hold asked of 1   ", {1, 0, 0}},
        {"k", "1 dram", "", {1, 0, 0}},
        {"j", "2 sp0", "", {1, 0, 0}},
        {"h", "2 sp0", "hold asked of 3   ", {1, 0, 1}},
        {"j", "3 sp0", "", {1, 0, 1}},
        {"r", "3 sp0", "released 3   ", {1, 0, 0}},
        {"k", "2 sp0", "", {1, 0, 0}},
    };
    terminal_run run(watch("86400"));
    ASSERT_TRUE(run.wait_for("\033[J")) << run.screen;
    for (const auto &c : cases) {
        const std::string screen = screen_after(run, c.key);
        EXPECT_NE(screen.find(text_of("\033[7m  %s ", c.selected)), std::string::npos) << screen;
        EXPECT_NE(screen.find(text_of("\n%sup/down", c.note)), std::string::npos) << screen;
        const auto &records = memory.table->records;
        EXPECT_EQ((std::array{records[1].hold, records[2].hold, records[3].hold}), c.holds);
    }
    memory.remove();
    EXPECT_NE(screen_after(run, "h").find("\nno right to write the table   up/down"),
              std::string::npos)
        << run.screen;
}

TEST(Keys, of_a_run_without_tests_do_nothing) {
    const own_table memory;
    memory.table->records[1] = {};
    terminal_run run(watch("86400"));
    ASSERT_TRUE(run.wait_for("\033[J")) << run.screen;
    (void)screen_after(run, "h");
    run.type("q");
    EXPECT_TRUE(run.wait_for("status 3")) << run.screen;
}

TEST(Watch, is_red_where_an_error_was_counted_since_the_last_look) {
    const own_table memory;
    terminal_run run(watch("0.01"));
    ASSERT_TRUE(run.wait_for("\033[J")) << run.screen;
    ++memory.table->records[1].errors;
    EXPECT_TRUE(run.wait_for("\033[1;31m! 1 dram user")) << run.screen;
}

} // namespace
