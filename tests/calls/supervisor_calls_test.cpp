// The calls of the front panel and of the supervisor.

#include "tests/calls/call_trace.h"

#include <csignal>
#include <cstdlib>

#include "panel/front_panel.h"
#include "runtime/clock.h"
#include "runtime/settings.h"
#include "supervisor/led.h"
#include "supervisor/run_loop.h"

namespace {

using PanelCalls = CallTrace;

// Only commands that are written down: the first case shows that none would be run.
TEST_F(PanelCalls, the_panel_drains_what_it_writes_and_flushes_after_each_command_of_a_restart) {
    ASSERT_EQ(joined(trace_of([] { (void)!system("exit 1"); })), "system exit 1\n");
    static int keys;
    keys = 0;
    device.has_input = [](const std::string &) { return ++keys <= 4; };
    device.read = [](const std::string &, std::span<uint8_t> room) {
        room[0] = 's';
        return size_t{1};
    };
    const std::string key = "poll sp6 in pri 100\nread sp6 10\nwrite sp6 \"\\e[2J\"\ndrain sp6\n";
    const std::string escape = "write sp6 \"1 ESC\"\nwrite sp6 \"\\r\\n\"\n";
    const auto start = [] { return front_panel_test(0); };
    EXPECT_EQ(joined(run(start, {{"write sp6 \"BBBB", 1, stop_it}})),
              "open /dev/sp6 rw\ndup sp6 1\nclose sp6\nopen /dev/sp6 rw\ndup sp6 0\nclose sp6\n" +
                  opened("sp6").substr(sizeof "open /dev/sp6 rw") + key + escape + key + escape +
                  key + escape + key + R"(write sp6 "\e[2J"
drain sp6
write sp6 "\e[8;1f"
drain sp6
write sp6 "Restarting Harnwick"
drain sp6
system cp /opt/orbalt/harnwick/pir.sh /opt/pir.sh
sync
system cd /opt;./vir.sh restart>/dev/null
sync
system cd /opt;./pir.sh halt>/dev/null
sync
system /sbin/reboot
sync
)" + escape + "poll sp6 in pri 100 x19\nwrite sp6 \"" +
                  std::string(40, 'A') +
                  "\"\nwrite sp6 \"\\r\\n\"\npoll sp6 in pri 100 x20\nwrite sp6 \"" +
                  std::string(40, 'B') + "\"\nwrite sp6 \"\\r\\n\" stopped\nnap 5000 finished\n");
    EXPECT_EQ(record(1).unit, 6);
}

using SupervisorCalls = CallTrace;

// What a set of signals would begin with if nobody emptied it.
void fill_the_stack() {
    volatile uint8_t garbage[8192];
    for (volatile uint8_t &byte : garbage)
        byte = 0xFF;
}

TEST_F(SupervisorCalls, the_supervisor_masks_handles_kills_and_lists_in_this_order) {
    EXPECT_EQ(joined(trace_of([] {
                  fill_the_stack();
                  restore_default_signals();
                  fill_the_stack();
                  (void)block_handled_signals();
                  install_signals();
                  led_period = 7;
                  start_timer();
                  (void)led_toggle();
                  (void)led_toggle();
                  record(1).pid = 700001;
                  record(2).pid = 700002;
                  process_count = 2;
                  fill_the_stack();
                  stress_signal(SIGTERM);
                  sleep_us(2'500'000);
              })),
              R"(signal 17 default
set mask
block 3 10 12 14 15 19 20
handle 10
handle 12
handle 14
handle 3
handle 19
handle 15
handle 20
timer 0 10 us, then 7 s
open /dev/cpuactive rw
read cpuactive 1
write cpuactive 01
read cpuactive 1
write cpuactive 01
yield x2
kill 700001 9
kill 700002 9
block 10 14
log 6 x2
set mask 3 10 12 14 15 20
nap 2500000
)");
}

TEST_F(SupervisorCalls, each_of_two_stop_signals_during_a_list_gets_a_whole_list_after_it) {
    const auto stop_twice = [] {
        stress_signal(SIGTERM);
        stress_signal(SIGQUIT);
    };
    EXPECT_EQ(joined(trace_of([] { stress_signal(SIGUSR1); }, {{"log 6", 1, stop_twice}})),
              "block 10 14\nlog 6\nyield x4\nlog 6 x5\nset mask\n");
}

} // namespace
