// hk_ctl beside hk_stress on the simulated board, as an operator uses it. Each case is a shell
// script on the board; it waits for what hk_ctl shows, never for a time.

#include <gtest/gtest.h>

#include "tests/ctl/ctl_on_board.h"
#include "tests/support/terminal_run.h"

namespace {

TEST(Release, lets_each_held_test_count) {
    board_run run =
        on_board({}, "$stress -d1 -D -Y /r0/y -M /r0/a:/r0/b:0 & run=$!\n"
                     "until [ $($ctl show | grep -c ' held, pid') = 3 ]; do sleep 0.05; done\n"
                     "$ctl release files M dram; echo released $?\n"
                     "until_shown 'read_count *[1-9].*files read' $ctl show\n"
                     "until_shown 'read_count *[1-9].*reads' $ctl show\n"
                     "until_shown 'read_count *[1-9].*blocks mapped' $ctl show\n"
                     "$ctl stop --clean; echo stopped $?\n"
                     "wait $run; echo status $?; ls /r0; segments");
    EXPECT_EQ(run.finish(), 0);
    for (const char *part :
         {"released: 1 dram user\n", "released: 2 filesys opt\n", "released: 3 bbsram file_copy\n",
          "\nreleased 0\n", "remove folder /r0/y\n", "stopped 0\nstatus 0\n0\n"})
        EXPECT_TRUE(shows(run, part)) << part << run.output << run.errors;
}

TEST(Hold, of_a_crossover_is_acknowledged_and_ends_with_its_release) {
    board_run run =
        on_board({"--cable", "2-8"},
                 "$stress -d1 -E28 & run=$!\n"
                 "until_shown 'read_count *[1-9]' $ctl show\n"
                 "$ctl hold 1; echo held $?\n" // the first record; the word is the second's
                 "$ctl show | grep read_count > /r0/before\n"
                 "sleep 0.3; $ctl show | grep read_count | cmp - /r0/before && echo idle\n"
                 "$ctl release @$run E; echo released $?\n"
                 "while $ctl show | grep read_count | cmp -s - /r0/before; do sleep 0.05; done\n"
                 "$ctl hold 2 7; echo wrong $?\n"
                 "$ctl stop; wait $run; $ctl log 2>&1; $ctl stop 2>&1; echo over $?");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "held: 2 sp8 loop\nheld 0\nidle\nreleased: 2 sp8 loop\nreleased 0\n"
                           "wrong 2\n"))
        << run.output << run.errors;
    EXPECT_TRUE(shows(run, " is over\nhk_ctl: run @") && shows(run, " is over\nover 3\n"))
        << run.output;
}

TEST(Release, reports_a_test_that_holds_itself_again) {
    board_run run =
        on_board({}, "$stress -d1 -D -F & run=$!\n" // no port 5s
                     "until [ $($ctl show | grep -c 'held, pid') = 3 ]; do sleep 0.05; done\n"
                     "$ctl release all 2>&1; echo released $?; $ctl stop; wait $run");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "released: 1 dram user\nhk_ctl: 2 FIOloop")) << run.output << run.errors;
    EXPECT_TRUE(shows(run, "released 1\n")) << run.output << run.errors;
}

TEST(Release, is_repeated_if_another_hold_comes_before_the_test_is_calm) {
    board_run run =
        on_board({"--cable", "2-8"},
                 "ms() { date +%s%3N; }\n"
                 "$stress -d1 -C2 >/dev/null & until_shown running $ctl show\n" // it reads nothing
                 "(sleep 0.5; exec $ctl hold C >&2) & start=$(ms); $ctl release C\n"
                 "echo released $? $((($(ms) - start + 50) / 100)); $ctl stop >&2; wait");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "released: 1 sp2 consume\nreleased 0 15\n") << run.errors;
}

TEST(Release, that_follows_the_runs_lets_each_test_work_as_it_starts) {
    board_run run =
        on_board({}, "$ctl release --follow & follow=$!; $stress -d1 -D -Y /r0/y >/dev/null &\n"
                     "until_shown 'read_count *[1-9].*files read' $ctl show\n"
                     "until_shown 'read_count *[1-9].*blocks mapped' $ctl show\n"
                     "kill $follow; wait $follow; echo follow $?; $ctl stop >&2; wait");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "follow 143\n") << run.errors;
}

TEST(Stop, ends_a_run_that_cannot_end_by_itself) {
    board_run run = on_board({"--cable", "2-8", "--loop", "5s"},
                             "$stress -d1 -l10 -E28 -h -E55 & run=$!\n"
                             // An emulator takes signals long before its program does.
                             "until_shown 'sp5 loop.*running' $ctl show; sleep 1\n"
                             "$ctl stop --timeout 1 --clean; echo stopped $?\n"
                             "wait $run; echo status $?; left; segments");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "has not ended within 1.0 s\nend supervisor ")) << run.output;
    EXPECT_TRUE(shows(run, "status 137\n0\n0\n")) << run.output << run.errors;
}

// A run takes signals only after it has started its tests, one each 50 ms.
TEST(Stop, and_log_wait_for_a_run_that_still_starts_its_tests) {
    if (*HK_EMULATOR != '\0')
        GTEST_SKIP() << "the emulator handles signals from its own start";
    board_run run =
        on_board({}, "ms() { date +%s%3N; }; tenths() { echo $((($(ms) - start + 50) / 100)); }\n"
                     "starting() { $stress -d1 $(printf ' -D%.0s' $(seq 20)) >/dev/null & run=$!\n"
                     "until $ctl runs >/r0/runs 2>&1; do sleep 0.01; done; start=$(ms); }\n"
                     "starting; $ctl log; echo log $? $(tenths); $ctl stop >&2; wait $run\n"
                     "$ctl clean >&2\n"
                     "starting; $ctl stop --timeout 0.1 2>&1 | sed \"s/$run/RUN/; /^end test/d\"\n"
                     "tenths; left; segments");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "log 0 10\nhk_ctl: supervisor RUN takes no signals\n"
                          "run @RUN has not ended within 0.1 s\nend supervisor RUN\n"
                          "run @RUN has ended\n1\n0\n1\n")
        << run.errors;
}

TEST(Runs, tells_two_apart_and_prints_json_whatever_they_are_named) {
    board_run run =
        on_board({"--loop", "2", "--loop", "3"},
                 "name=$(printf 'a\"\\\\\\377\\001\\303\\251')\n"
                 "$stress -I \"$name\" -E22 & one=$!; $stress -d1 -E33 & two=$!\n"
                 "until [ $($ctl runs | grep -c ' running ') = 2 ]; do sleep 0.05; done\n"
                 "until_shown 'sp2 loop' $ctl show @$one; until_shown 'sp3 loop' $ctl show $two\n"
                 "$ctl show 2>&1; echo which $?; $ctl runs | head -n1\n"
                 "$ctl show $one --json | python3 -c 'import json, sys\n"
                 "print(ascii(json.loads(sys.stdin.buffer.read().decode())[\"options\"][-2]))'\n"
                 "$ctl stop $one; $ctl runs | grep -c ' running '; $ctl log; echo log $?\n"
                 "$ctl stop; wait; $ctl show 99; echo none $?");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "which 2\n"
                           "RUN      STATE    SINCE (UTC)         RECORDS HELD ENDED ERRORS   "
                           "SEGMENT  OPTIONS\n"
                           "'a\"\\\\\\ufffd\\x01\\xe9'\n"))
        << run.output << run.errors;
    EXPECT_TRUE(shows(run, "hk_ctl: there are 2 runs; name one, as in @")) << run.output;
    EXPECT_TRUE(shows(run, "\n1\nlog 0\n")) << run.output << run.errors;
    EXPECT_TRUE(shows(run, "none 2\n")) << run.output;
}

// The crossover has no ports: it ends at once, with errors in both of its records.
TEST(Runs, counts_records_held_and_ended_tests_and_records_in_error) {
    board_run run =
        on_board({}, "$stress -d1 -D -D -D -D -E34 >/dev/null & run=$!\n"
                     "until [ $($ctl show | grep -c ' held, pid') = 4 ]; do sleep 0.05; done\n"
                     "until_shown '6 sp.*finished' $ctl show; sleep 1\n"
                     "$ctl runs | awk 'NR > 1 { print $2, $5, $6, $7, $8 }'\n"
                     "$ctl stop --timeout 0.1 >&2; wait $run; echo $?");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "running 6 4 1 2\n137\n") << run.errors;
}

// A foreign segment of a table's size, all zero but its creator's number and one word.
constexpr char MAKE_FOREIGN[] = "import ctypes, os, struct\n"
                                "c = ctypes.CDLL(None); c.shmat.restype = ctypes.c_void_p\n"
                                "c.shmdt.argtypes = [ctypes.c_void_p]\n"
                                "a = c.shmat(c.shmget(0, 5800, 0o1660), None, 0)\n"
                                "ctypes.memmove(a, struct.pack('=ii', os.getpid(), 1), 8)\n";

TEST(Clean, removes_what_a_killed_supervisor_left_and_nothing_else) {
    board_run run =
        on_board({"--loop", "2", "--loop", "3"},
                 std::string("python3 -c \"") + MAKE_FOREIGN +
                     "\"; mkdir /r0/dead; echo keep > /r0/dead/mine; echo keep > /r0/file-0001\n"
                     "$stress -d1 -Y /r0/live -E33 & live=$!\n"
                     "$stress -d1 -Y /r0/dead -Y /r0/made -M /r0/a:/r0/b:0 -E22 & dead=$!\n"
                     "until_shown 'sp2 loop.*running' $ctl show $dead\n"
                     "until_shown 'sp3 loop.*running' $ctl show $live\n"
                     "kill -KILL $dead; wait $dead\n"
                     "$ctl runs; echo runs $?\n"
                     "$ctl clean --dry-run | grep -c '^would'; ls /r0/made | wc -l; segments\n"
                     "$ctl clean >/r0/log; echo clean $?; rm /r0/log\n"
                     "ls /r0 /r0/dead; ls /r0/live | wc -l; segments; $ctl runs | grep -c killed\n"
                     "$ctl stop $live --clean | grep -c remove; ls /r0; segments");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "its supervisor is gone; these tests still run: "))
        << run.output << run.errors;
    EXPECT_TRUE(shows(run, "\nruns 1\n40\n16\n3\nclean 0\n"
                           "/r0:\ndead\nfile-0001\nlive\n\n/r0/dead:\nmine\n16\n2\n0\n"))
        << run.output << run.errors;
    EXPECT_TRUE(shows(run, "18\ndead\nfile-0001\n1\n")) << run.output << run.errors;
}

TEST(Clean, leaves_what_a_running_run_works_with_in_the_same_folder) {
    board_run run =
        on_board({}, "plan='-d1 -Y /r0/files -M /r0/a:/r0/b:0'\n"
                     "$stress $plan & dead=$!\n"
                     "until_shown 'filecopy.*held' $ctl show $dead; kill -KILL $dead; wait $dead\n"
                     "$stress $plan & live=$!\n"
                     "until_shown 'filecopy.*held' $ctl show $live\n"
                     "$ctl clean >/r0/log; echo clean $?; ls /r0/files | wc -l; ls /r0\n"
                     "$ctl clean /r0/log /r0/none 2>&1; echo none $?\n"
                     "$ctl stop $live --clean; ls /r0");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(shows(run, "clean 0\n16\na\nb\nfiles\nlog\n")) << run.output << run.errors;
    EXPECT_TRUE(shows(run, "cannot search /r0/log")) << run.output << run.errors;
    EXPECT_TRUE(shows(run, "none 1\n")) << run.output << run.errors;
    EXPECT_EQ(run.output.substr(run.output.size() - 4), "log\n") << run.output;
}

TEST(Clean, waits_for_a_reader_of_the_table_and_removes_many_folders_in_order) {
    board_run run =
        on_board({}, "$stress -d1 -D -M /r0/a:/r0/b:0 & run=$!\n"
                     "until [ \"$(wc -c </r0/a)\" = 512 ]; do sleep 0.05; done\n"
                     "until_shown ' running ' $ctl runs; kill -KILL $run; wait $run\n"
                     "for pid in $($ctl runs | sed -n 's/.*still run://p')\n"
                     "do kill -KILL $pid; done\n"
                     "python3 -c \"import ctypes, sys, time\n"
                     "c = ctypes.CDLL(None); c.shmat(int(sys.argv[1]), None, 0o10000)\n"
                     "print('attached', flush=True); time.sleep(8)\" "
                     "$(awk 'END { print $2 }' /proc/sysvipc/shm) >/r0/log &\n"
                     "until grep -q attached /r0/log; do sleep 0.05; done\n"
                     "$ctl clean >/r0/log 2>&1; echo clean $?; sed 's/t [0-9]*/t/' /r0/log\n"
                     "mkdir -p /r0/x/y; head -c 512 /dev/zero >/r0/x/y/file-0000; ln -s x/y /r0/z\n"
                     "for i in $(seq 10 29)\n"
                     "do mkdir -m 700 /r0/$i; head -c 512 /dev/zero >/r0/$i/file-0000; done\n"
                     "mkdir -m 700 /r0/w; cp /r0/10/file-0000 /r0/w; echo keep >/r0/w/mine\n"
                     "(ulimit -n 20; $ctl clean $(yes /r0 | head -n20) >/r0/log); echo clean $?\n"
                     "grep -c 'remove segment' /r0/log; for what in file folder\n"
                     "do grep \"remove $what /r0/[0-9]\" /r0/log >/r0/one\n"
                     "sort -c /r0/one && wc -l </r0/one; done; ls /r0 /r0/w /r0/x/y; segments");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output,
              "clean 1\nhk_ctl: segment stays: it is attached 1 times\nremove file /r0/a\n"
              "clean 0\n1\n20\n20\n/r0:\nb\nlog\none\nw\nx\nz\n\n/r0/w:\nmine\n\n"
              "/r0/x/y:\nfile-0000\n0\n")
        << run.errors;
}

TEST(Watch, shows_a_run_on_terminals_of_two_sizes_and_obeys_keys) {
    for (const auto &[columns, rows] : {std::pair<uint16_t, uint16_t>{80, 24}, {40, 10}}) {
        terminal_run run(std::string(HK_BOARD_PATH
                                     " --quiet --loop 2 -- sh -c '" HK_EMULATOR " " HK_STRESS_PATH
                                     " -d1 -Y /r0/y -E22 & "
                                     "until " HK_EMULATOR " " HK_CTL_PATH
                                     " show 2>/dev/null | grep -q \"sp2.*running\"; "
                                     "do :; done; exec 3<&0; (until stty -a <&3 | "
                                     "grep susp.*undef; do sleep 0.05; done) & "
                                     "setsid -w " HK_EMULATOR " " HK_CTL_PATH " watch --every 0.1; "
                                     "echo left $?; " HK_EMULATOR " " HK_CTL_PATH
                                     " watch & read line; kill $!; wait $!; "
                                     "echo killed $?; " HK_EMULATOR " " HK_CTL_PATH " stop'"),
                         columns, rows);
        ASSERT_TRUE(run.wait_for("filesys opt     held")) << run.screen;
        ASSERT_TRUE(run.wait_for("2 sp2 loop        running")) << run.screen;
        EXPECT_TRUE(run.wait_for("susp = <undef>")) << run.screen; // else ^Z leaves this screen
        EXPECT_TRUE(run.never_waits_for_a_key()) << "Ctrl-C can take a key away before it is read";
        run.type("r");
        EXPECT_TRUE(run.wait_for("filesys opt     running")) << run.screen;
        run.type("\033[Bh");
        run.type("h");
        EXPECT_TRUE(run.wait_for("sp2 loop        held")) << run.screen;
        run.resize(30, 5);
        EXPECT_TRUE(run.wait_for("hold asked of 2   up/down sele\033[K\033[J")) << run.screen;
        run.type("q");
        EXPECT_TRUE(run.wait_for("left 0\r\n\033[?1049h")) << run.screen;
        run.type("\n");
        EXPECT_TRUE(run.wait_for("\033[?1049lkilled 0")) << run.screen;
        EXPECT_TRUE(run.wait_for("restored.")) << run.screen;
    }
}

TEST(Watch, to_a_pipe_shows_each_look_until_its_times_or_the_run_are_over) {
    board_run run = on_board(
        {},
        "ms() { date +%s%3N; }; tenths() { echo $((($(ms) - start + 50) / 100)); }\n"
        "for end in '$ctl stop --clean' 'kill -KILL $run $test'\n"
        "do $stress -d1 -D >/dev/null & run=$!; until_shown held $ctl show\n"
        "test=$($ctl show | sed -n 's/.* pid \\([0-9]*\\),.*/\\1/p')\n"
        "start=$(ms)\n" // more looks than it may have descriptors
        "(ulimit -n 20; $ctl watch --every 0.5 --times 31 >/r0/looks; echo $? $(tenths))\n"
        "grep -c held, /r0/looks; rm /r0/looks; $ctl watch --every 2 >/r0/looks & watch=$!\n"
        "until [ -s /r0/looks ]; do sleep 0.05; done; eval $end >&2; wait $run; wait $watch\n"
        "echo $?; sed -n 's/.*user: \\([a-z]*\\),.*/\\1/p; s/@[0-9]* //p' /r0/looks\n"
        "$ctl clean >&2; done");
    EXPECT_EQ(run.finish(), 0);
    const std::string each = "0 150\n31\n0\nheld\ngone\nrun is over\n";
    EXPECT_EQ(run.output, each + each) << run.errors;
}

} // namespace
