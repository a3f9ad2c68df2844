// What hk_ctl answers to wrong use, and to a user without the rights.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/ctl/ctl_on_board.h"

namespace {

TEST(Rights, of_a_user_who_may_not_read_the_run_are_reported) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    board_run run = on_board({"--loop", "2"},
                             "$stress -d1 -E22 & run=$!\n"
                             "until_shown 'sp2 loop.*running' $ctl show\n"
                             "nobody='setpriv --reuid 65534 --regid 65534 --clear-groups'\n"
                             "$nobody $ctl runs; echo runs $?; $nobody $ctl stop; echo stop $?\n"
                             "setpriv --reuid 65534 --clear-groups $ctl stop; echo group $?\n"
                             "for command in runs log clean\n"
                             "do $nobody $ctl $command 2>&1 | grep -c 'read it\\|skipped'; done\n"
                             "$ctl show | grep running\n"
                             "python3 -c \"import ctypes, struct, sys\n" // the group may only read
                             "c = ctypes.CDLL(None); id = int(sys.argv[1])\n"
                             "about = ctypes.create_string_buffer(256); c.shmctl(id, 2, about)\n"
                             "struct.pack_into('=H', about, 20, 0o640); c.shmctl(id, 1, about)\" "
                             "$(awk 'END { print $2 }' /proc/sysvipc/shm)\n"
                             "setpriv --reuid 65534 --clear-groups $ctl hold all 2>&1 | "
                             "sed 's/.*user/user/'\n"
                             "setpriv --reuid 65534 --clear-groups $ctl release --follow &\n"
                             "sleep 0.1; kill $!; wait $!; echo follow $?; $ctl stop; wait $run");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_NE(run.errors.find("no right to read it"), std::string::npos) << run.errors;
    EXPECT_TRUE(
        shows(run, "runs 3\nstop 3\ngroup 1\n1\n1\n2\n1 sp2 loop: crossover (-E), running") &&
        shows(run, "user 0: no right to write it\nfollow 143\n"))
        << run.output << run.errors;
}

TEST(Rights, of_a_user_who_may_not_end_the_run_or_remove_its_files_are_reported) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    if (*HK_EMULATOR != '\0')
        GTEST_SKIP() << "the emulator needs the signals";
    board_run run = on_board(
        {},
        "$stress -d1 -M /r0/a:/r0/b:0 >/dev/null & run=$!\n"
        "until_shown held $ctl show; "
        "test=$($ctl show | sed -n 's/.* pid \\([0-9]*\\),.*/\\1/p')\n"
        "try() { \"$@\" >/r0/out 2>&1; echo \"status $?\" >>/r0/out\n"
        "sed \"s/\\<$run\\>/RUN/; s/\\<$test\\>/TEST/; s/segment [0-9]*/segment/\" /r0/out; }\n"
        "user='setpriv --reuid 65534 --clear-groups'\n"
        "try $user $ctl show | sed -n 's/since.*//p'\n"
        "try $user $ctl stop; try $user $ctl clean\n"
        "try " WITHOUT_SIGNALS_PATH " $ctl log\n"
        "try " WITHOUT_SIGNALS_PATH " $ctl stop --timeout 0.1\n"
        "kill -KILL $run; wait $run; try " WITHOUT_SIGNALS_PATH " $ctl clean\n"
        "kill -KILL $test; until [ $($ctl runs | grep -c over) = 1 ]; do sleep 0.05; done\n"
        "mkdir -m 700 /r0/y; head -c 512 /dev/zero >/r0/y/file-0000; chown -R 65534 /r0/a /r0/y\n"
        "try $user $ctl clean; segments");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output,
              "run @RUN, its processes are another user's, \n"
              "hk_ctl: run @RUN: its processes are another user's\nstatus 1\n"
              "hk_ctl: /r0: skipped, a run of another user may work there\nstatus 1\n"
              "hk_ctl: cannot signal supervisor RUN: Operation not permitted\nstatus 1\n"
              "hk_ctl: cannot signal supervisor RUN: Operation not permitted\n"
              "run @RUN has not ended within 0.1 s\n"
              "end test TEST\nhk_ctl: cannot end process TEST: Operation not permitted\n"
              "end supervisor RUN\nhk_ctl: cannot end process RUN: Operation not permitted\n"
              "hk_ctl: run @RUN: not all of it has ended\nstatus 1\n"
              "end test TEST\nhk_ctl: cannot end process TEST: Operation not permitted\n"
              "hk_ctl: run @RUN: not all of it has ended\nstatus 1\n"
              "remove segment of run @RUN\n"
              "hk_ctl: cannot remove segment: Operation not permitted\n"
              "remove file /r0/a\nhk_ctl: cannot remove /r0/a: Permission denied\n"
              "remove file /r0/y/file-0000\n"
              "remove folder /r0/y\nhk_ctl: cannot remove /r0/y: Permission denied\n"
              "status 1\n1\n")
        << run.errors;
}

TEST(Usage, that_is_wrong_gets_status_2_and_its_reason) {
    board_run run = on_board(
        {}, "while read words\n"
            "do $ctl $words >/r0/out 2>&1; status=$?; sed 's|^/.*/hk_ctl|hk_ctl|' /r0/out\n"
            "echo $status; done <<END\n\n"
            "nothing\nruns x\nshow --every 1\nshow --nonsense\nwatch --every 0\n"
            "watch --times 0\nstop --timeout x\nrelease --follow 1\nshow\nruns\nEND\n"
            "$stress -d1 -D >/dev/null & run=$!\n"
            "until_shown held $ctl show\n"
            "for words in 'show @' 'log @1' 'hold' 'release' 'hold E'\n"
            "do $ctl $words 2>&1 | sed s/@$run/@N/; $ctl $words 2>/dev/null; echo $?; done\n"
            "$ctl stop >&2; wait $run >/dev/null; $ctl show --help >/r0/out; echo $?\n"
            "sed -n '1p; /dry-run/p; $p' /r0/out; $ctl --help | cmp - /r0/out && echo same");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output,
              "hk_ctl: a command is missing; hk_ctl --help lists them\n2\n"
              "hk_ctl: nothing: no such command; hk_ctl --help lists them\n2\n"
              "hk_ctl: usage: hk_ctl runs \n2\n"
              "hk_ctl: show takes no such option; hk_ctl --help shows them\n2\n"
              "hk_ctl: unrecognized option '--nonsense'\n2\n"
              "hk_ctl: --every 0: seconds are 0.01 to 86400\n2\n"
              "hk_ctl: --times 0: a number of 1 or more is needed\n2\n"
              "hk_ctl: --timeout x: seconds are 0.01 to 86400\n2\n"
              "hk_ctl: release --follow releases all tests of all runs and takes no names\n2\n"
              "hk_ctl: there is no run\n3\nhk_ctl: there is no run\n3\n"
              "hk_ctl: @: a run is named by its supervisor's process, as in @12\n2\n"
              "hk_ctl: @1: no such run; hk_ctl runs lists them\n2\n"
              "hk_ctl: usage: hk_ctl hold [RUN] TEST...\n2\n"
              "hk_ctl: name the tests: numbers of records, options, names, or all\n2\n"
              "hk_ctl: E: the run @N has no such record or test\n2\n0\n"
              "usage: hk_ctl COMMAND ...\n"
              "  clean    [--dry-run] [FOLDER...]         remove what ended runs left\n"
              "2 wrong use, or no such run or test; 3 nothing to judge or to stop.\nsame\n")
        << run.errors;
}

} // namespace
