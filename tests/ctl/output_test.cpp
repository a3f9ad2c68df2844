// What hk_ctl prints of a run: as JSON, a line for each record, and as the live picture
// on its terminal.

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ctl/commands/show.h"
#include "ctl/watch/frame.h"
#include "ctl/watch/terminal.h"

namespace {

// Each word has another value, so that none can be printed for another.
TestRecord record_of(record_letter letter) {
    TestRecord record = {};
    record.pid = 500;
    record.unit = 2;
    record.test_letter = static_cast<int32_t>(letter);
    record.read_count = 11;
    record.write_count = 12;
    record.prev_read_count = 13;
    record.errors = 21;
    record.errors2 = 22;
    record.errors3 = 23;
    for (int32_t i = 0; i < RING_SLOTS; ++i)
        record.hist[static_cast<size_t>(i)] = {100 + i, 200 + i};
    return record;
}

stress_run run_of_two_tests() {
    stress_run run;
    auto &records = run.copy.table.records;
    records[0].pid = 400;
    records[1] = record_of(record_letter::CROSSOVER);
    records[1].kind_code = 5;
    records[2] = record_of(record_letter::FILESYSTEM);
    records[2].errors = records[2].errors2 = records[2].errors3 = 0;
    records[2].hold = HOLD_ACKNOWLEDGED;
    run.records_used = 3;
    run.tests = tests_of(run.copy.table, run.records_used);
    run.memory.id = 7;
    run.memory.created = 1'000'000'000;
    run.supervisor_is = supervisor_state::RUNNING;
    run.test_processes.emplace_back().pid = 500;
    run.options = {"-d1", "a\"b"};
    return run;
}

TEST(Json, has_every_word_of_a_record_under_its_name) {
    testing::internal::CaptureStdout();
    print_json(run_of_two_tests());
    const std::string hist =
        "\"hist\":[[107,207],[106,206],[105,205],[104,204],[103,203],[102,202],"
        "[101,201],[100,200]]}";
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        R"({"supervisor":400,"state":"running","since":1000000000,"segment":7,"options":["-d1","a\"b"],"records":[
{"record":1,"name":"sp2 loop","test":"crossover","state":"running","pid":500,"unit":2,"hold":0,"kind_code":5,)"
        R"("counts":[{"field":"write_count","meaning":"frames written","value":12},)"
        R"({"field":"read_count","meaning":"frames read and good","value":11}],)"
        R"("errors":[{"field":"errors","meaning":"failed reads","value":21},)"
        R"({"field":"errors2","meaning":"bad frames, line faults, and silences in runs of four or more","value":22},)"
        R"({"field":"errors3","meaning":"time-outs","value":23}],)" +
            hist +
            R"(,
{"record":2,"name":"filesys opt","test":"files","state":"held","pid":500,"unit":2,"hold":2,"kind_code":0,)"
            R"("counts":[{"field":"write_count","meaning":"files written","value":12},)"
            R"({"field":"read_count","meaning":"files read","value":11}],)"
            R"("errors":[{"field":"errors","meaning":"bad files and a failed set-up","value":0}],)" +
            hist + "\n]}\n");
}

// The screen, with ^ for each escape and without the blanks at the ends of its lines.
std::string screen_of(const picture &what, screen_size size) {
    std::string screen;
    for (std::string line : draw(what, size)) {
        std::replace(line.begin(), line.end(), '\033', '^');
        screen += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return screen;
}

TEST(Screen, shows_the_state_the_rate_and_every_counter_of_a_record) {
    stress_run run = run_of_two_tests();
    history past;
    past.add(run, 1000);
    run.copy.table.records[1].read_count += 30;
    ++run.copy.table.records[1].errors;
    past.add(run, 3000);
    const std::string lines = plain_lines(run, past);
    const std::string time = lines.substr(0, sizeof "00:00:00" - 1);
    EXPECT_EQ(lines, time +
                         " 1 sp2 loop: running, frames written 12, frames read and good 41, "
                         "15.0/s, errors 22,22,23 moved\n" +
                         time +
                         " 2 filesys opt: held, files written 12, files read 11, 0.0/s, errors "
                         "0,0,0\n");
    EXPECT_EQ(screen_of({run, past, 1, "held", false}, {100, 24}),
              R"(run @400  -d1 a"b
^[1m    RECORD          STATE         RATE/S      COUNT ERRORS 1,2,3                                    ^[0m
^[7m^[1;31m! 1 sp2 loop        running         15.0         41 22,22,23       #                                ^[0m^[0m
  2 filesys opt     held             0.0         11 0,0,0          _
1: 22 failed reads; 22 bad frames, line faults, and silences in runs of four or more; 23 time-outs;
held   up/down select  h hold  r release  q quit
)");
    run.supervisor_is = supervisor_state::GONE;
    EXPECT_EQ(screen_of({run, past, 2, "", false}, {60, 24}), R"(run @400, killed  -d1 a"b
^[1m    RECORD          STATE         RATE/S ERRORS 1,2,3       ^[0m
^[1;31m! 1 sp2 loop        running         15.0 22,22,23           ^[0m
^[7m  2 filesys opt     held             0.0 0,0,0              ^[0m
2: 12 files written; 11 files read;
up/down select  h hold  r release  q quit
)");
}

TEST(Screen, shows_the_newest_rates_of_many) {
    stress_run run = run_of_two_tests();
    history past;
    for (uint32_t rate = 0; rate <= 100; ++rate) {
        run.copy.table.records[1].read_count += rate;
        past.add(run, 1000 + 1000 * rate);
    }
    EXPECT_EQ(draw({run, past, 2, "", false}, {80, 24})[2],
              "! 1 sp2 loop        running        100.0       5061 21,22,23       *****########");
}

TEST(Screen, has_the_counts_of_a_receiver_and_a_name_for_a_device_that_could_not_be_opened) {
    stress_run run = run_of_two_tests();
    run.copy.table.records[1] = record_of(record_letter::RECEIVER);
    run.copy.table.records[2] = record_of(record_letter::SPI_FIO);
    run.copy.table.records[2].unit = 0;
    const std::string lines = plain_lines(run, {});
    EXPECT_NE(lines.find(" 1 sp2 consume: running, reads 11, good blocks 13, "), std::string::npos);
    EXPECT_NE(lines.find(" 2 SpiFIOloop sp?s: running, requests 12, "), std::string::npos) << lines;
}

// On a terminal that takes no output. Returns 0, or what is wrong.
int use_terminal() {
    alarm(30); // ends a wait that the signal does not end
    (void)dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    {
        const terminal screen;
        termios settings = {};
        (void)tcgetattr(STDIN_FILENO, &settings);
        (void)raise(SIGTERM); // before the wait
        if (settings.c_cc[VTIME] != 0 || screen.wait_for_key(3'600'000) != key::LEAVE)
            return 2;
    }
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGTERM);
}

TEST(Terminal, takes_signals_only_while_it_waits_and_keys_without_a_pause) {
    termios settings = {};
    settings.c_cc[VTIME] = 5;
    int far_end = -1;
    const pid_t child = forkpty(&far_end, nullptr, &settings, nullptr);
    if (child == 0)
        _exit(use_terminal());
    int status = -1;
    (void)waitpid(child, &status, 0);
    (void)close(far_end);
    EXPECT_EQ(status, 0);
}

} // namespace
