// What the kernel holds of a run, whatever the program says: locked memory, signals, descriptors
// and the shared segment.

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

// Prints, again and again, a line for each process, supervisor first: locked memory, signals that
// are blocked, ignored and caught, see proc_pid_status(5), and the devices and files of the board
// that it has open. The last line has mode, size and attached processes of each segment.
constexpr char SHOW_FACTS[] = R"sh(
count_nulls() { readlink /proc/$1/fd/* | grep -c /dev/null; }
inherited=$(count_nulls $$)
show() {
    awk '/^VmLck/ { locked = $2 > 0 ? "locked" : "unlocked" }
         /^Sig(Blk|Ign|Cgt)/ { sub(/^0*/, "", $2); signals = signals " " ($2 == "" ? 0 : $2) }
         END { printf "%s%s: ", locked, signals }' /proc/$1/status
    readlink /proc/$1/fd/* | sed -n 's|^/dev/||p; s|^/r0/||p' | grep -v -e null -e pts | sort | xargs
    [ $(count_nulls $1) -le $inherited ] || echo more of /dev/null
}
while kill -0 $$ 2>/dev/null; do
    echo facts
    for process in $$ $(cat /proc/$$/task/$$/children); do
        [ "$(cat /proc/$process/comm)" = hk_stress ] && show $process
    done 2>/dev/null
    awk '$4 == 5800 { print $3, $4, $7 }' /proc/sysvipc/shm
    sleep 0.1
done & exec env --ignore-signal=CHLD --block-signal=TERM --block-signal=ALRM "$@")sh";

// Of the supervisor: blocked, ignored, caught (3, 10, 12, 14, 15 and 20), LED. A test has the
// default signals and, beside the LED that it inherits, its own devices.
constexpr char FACTS[] = R"(facts
locked 0 0 86a04: cpuactive
locked 0 0 0: cpuactive manufacturer
locked 0 0 0: cpuactive reserved
locked 0 0 0: cpuactive sp1
locked 0 0 0: cpuactive sp4
locked 0 0 0: cpuactive sp6 sp6
locked 0 0 0: cpuactive
locked 0 0 0: cpuactive
locked 0 0 0: a b cpuactive
locked 0 0 0: cpuactive sp5s
locked 0 0 0: cpuactive sp2 sp8
660 5800 11
)";

TEST(KernelFacts, every_process_has_its_memory_locked_default_signals_and_its_own_devices_alone) {
    if (sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the facts would be the emulator's";
#if defined(HK_SANITIZED)
    GTEST_SKIP() << "the sanitizer handles signals of its own";
#endif
    std::vector<std::string> command = {"/bin/sh", "-c", SHOW_FACTS, "sh", HK_STRESS_PATH};
    // clang-format off
    command.insert(command.end(), {"-d1", "-L", "-S4", "-C1", "-P4", "-K", "-D", "-Y/r0/f", "-M/r0/a:/r0/b:0",
                                   "-h", "-E55", "-h", "-E28"});
    // In the machine's time: otherwise the kernel shows the LED as one of the board's terminals.
    board_run run = board_run::program({"--clock", "real", "--cable", "2-8", "--cable", "1-4", "--loop", "5s", "--spi", "221",
                                        "--spi", "reserved=loop", "--keys", ""}, command);
    // clang-format on
    EXPECT_TRUE(run.wait_for_output(FACTS)) << run.output.substr(run.output.rfind("facts"));
    ASSERT_TRUE(run.wait_for_log("LED off") &&
                run.wait_for_log("LED on")); // a second after the start
    run.signal(SIGTERM);
    EXPECT_EQ(run.finish(), 0);
    // The last number of this line is the time since the start.
    const size_t line = run.output.find("file copy,");
    ASSERT_NE(line, std::string::npos) << run.output;
    int seconds = 0;
    EXPECT_EQ(sscanf(run.output.c_str() + line, "file copy, read %*x, errors %*x %d", &seconds), 1);
    EXPECT_GE(seconds, 1);
    EXPECT_LE(seconds, 60);
}

} // namespace
