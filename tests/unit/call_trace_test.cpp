// The calls of every test, in order: what each turn opens, drains, sends, waits for and reads, how
// long it pauses, and what the end releases.

#include "tests/support/call_trace.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "fio/fio_frame.h"
#include "fio/fio_loop.h"
#include "fio/spi/spi_device.h"
#include "fio/spi/spi_exchange.h"
#include "fio/spi/spi_loop.h"
#include "panel/front_panel.h"
#include "runtime/clock.h"
#include "runtime/settings.h"
#include "runtime/started_tests.h"
#include "serial/crossover.h"
#include "serial/echo.h"
#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "serial/producer.h"
#include "serial/receiver.h"
#include "storage/dram.h"
#include "storage/file_copy.h"
#include "storage/files.h"
#include "supervisor/led.h"
#include "supervisor/lists/results_log.h"
#include "supervisor/run_loop.h"

namespace {

using bytes = std::vector<uint8_t>;

// What the far end of the cable, or a module, has ready to be read.
bytes waiting;

size_t read_waiting(const std::string &, std::span<uint8_t> room) {
    std::ranges::copy(waiting, room.begin());
    return std::exchange(waiting, {}).size();
}

bool is_waiting(const std::string &) {
    return !waiting.empty();
}

std::string opened(const std::string &port) {
    return "open /dev/" + port + " rw\n" + port + " get settings\n" + port +
           " set settings at once\n" + port + " get settings\n" + port +
           " set settings and flush\n";
}

// The lines that begin so.
std::string lines_with(const std::vector<std::string> &all, const std::string &start) {
    std::vector<std::string> found;
    std::ranges::copy_if(all, std::back_inserter(found),
                         [&](const std::string &line) { return line.starts_with(start); });
    return joined(found);
}

class CrossoverCalls : public CallTrace {
protected:
    // Each frame comes back whole, on both ports.
    void SetUp() override {
        CallTrace::SetUp();
        device.has_input = [](const std::string &port) {
            return turn <= lost_from || turn > lost_until || !port.starts_with(lost_port);
        };
        device.written = [](const std::string &port, std::span<const uint8_t> sent) {
            turn += port == "sp2" ? 1 : 0;
            waiting.assign(sent.begin(), sent.end());
            waiting[0] ^= is_spoiled ? 1 : 0;
        };
        device.read = [](const std::string &, std::span<uint8_t> room) {
            std::ranges::copy(waiting, room.begin());
            return waiting.size();
        };
        turn = 0;
        lost_from = 0;
        lost_until = 1000;
        lost_port = "none";
        is_spoiled = false;
    }

    static int turn;
    static int lost_from;  // the last turn before frames are lost on `lost_port`
    static int lost_until; // the last turn in which they are
    static std::string lost_port;
    static bool is_spoiled;
};

int CrossoverCalls::turn;
int CrossoverCalls::lost_from;
int CrossoverCalls::lost_until;
std::string CrossoverCalls::lost_port;
bool CrossoverCalls::is_spoiled;

pid_t start_2_to_8() {
    return crossover_test(0, "2", "8", frame_sample_pattern);
}

// The driver may change what it is given to send: the second port and the check need the frame.
TEST_F(CrossoverCalls, set_the_lines_then_send_drain_wait_and_read_in_each_turn) {
    device.changes_what_it_sends = true;
    device.shows_cleared = true;
    const auto compare_ids = [] {
        record(1).kind_code = record(1).pid == record(2).pid && record(1).pid > 0;
    };
    EXPECT_EQ(joined(run(start_2_to_8, {{"nap 9000", 1, compare_ids}, {"read sp8", 2, stop_it}})),
              opened("sp2") + opened("sp8") +
                  R"(sp2 get lines
sp2 rts off
sp8 get lines
sp8 rts off
sp8 get lines x2
sp2 get lines x3
sp2 rts on
sp8 get lines
sp8 rts on
sp8 get lines x2
sp2 get lines x2
nap 9000
write sp2 ")('"
write sp8 ")('"
drain sp2
drain sp8
nap 3125
poll sp8 in 4
read sp8 512, 512 clear
poll sp2 in 4
read sp2 512, 100 clear
write sp2 03 03 0c 20 12 c7 58 2b 0c
write sp8 03 03 0c 20 12 c7 58 2b 0c
drain sp2
drain sp8
nap 3645
poll sp8 in 4
read sp8 512, 100 clear
poll sp2 in 4 stopped
read sp2 512, 100 clear stopped
nap 5000 stopped
)");
    EXPECT_EQ(record(1).kind_code, 1) << "both records have the id of the process";
    for (const int index : {1, 2}) {
        EXPECT_EQ(record(index).unit, index == 1 ? 2 : 8);
        EXPECT_EQ(record(index).write_count, 2u);
        EXPECT_EQ(record(index).read_count, 2u);
        EXPECT_EQ(record(index).errors + record(index).errors2 + record(index).errors3, 0);
    }
}

TEST_F(CrossoverCalls, without_its_port_mark_the_end_at_once_and_log_it) {
    const auto start = [] { return crossover_test(0, "none", "none", frame_sample_pattern); };
    const std::string lines = joined(run(start, {}));
    EXPECT_TRUE(lines.starts_with("open /dev/spnone rw\nlog 6\n-1 get lines stopped\n"));
    EXPECT_TRUE(lines.ends_with("nap 9000 stopped\nnap 5000 finished\n")) << lines;
}

TEST_F(CrossoverCalls, wait_for_the_line_time_and_poll_until_as_much_has_passed_again) {
    struct {
        uint32_t speed;
        int64_t time_us;
        traced_event event;
        const char *waits;
    } const cases[] = {
        {9, 5'000'000, {"", 0, nullptr}, "nap 300000\npoll sp2 in 301 x3\n"},
        {33, 5'000'000, {"", 0, nullptr}, "nap 2000\npoll sp2 in 3 x3\n"},
        // Polls before the deadline do not count.
        {17, 5'000'000, {"poll", 1, set_clock_back}, "nap 3125\npoll sp2 in 4 x6\n"},
        {17, 5'985'875, {"poll", 1, set_clock_back}, "nap 3125\npoll sp2 in 4 x6\n"},
    };
    lost_port = "sp2";
    lost_from = 0;
    for (const auto &c : cases) {
        port_speed_code = c.speed;
        device.time_us = c.time_us;
        turn = 0;
        const auto start = [] { return crossover_test(0, "2", "2", frame_sample_pattern); };
        auto all = run(start, {c.event, {"write sp2", 2, stop_it}});
        ASSERT_GT(all.size(), 4u);
        all.resize(static_cast<size_t>(
            std::ranges::find(all, "write sp2 03 03 0c 20 12 c7 58 2b 0c") - all.begin()));
        std::erase(all, "nap 9000");
        EXPECT_EQ(lines_with(all, "nap") + lines_with(all, "poll"), c.waits) << c.speed;
    }
    port_speed_code = SPEED_115200;
}

TEST_F(CrossoverCalls, count_runs_of_silence_and_samples_by_direction) {
    struct {
        const char *name;
        const char *y;
        const char *lost_port;
        bool is_spoiled;
        int lost_until;
        int hold_turn;
        int stop_turn;
        std::array<int32_t, 2> errors2;
        std::array<int32_t, 2> hist_next;
    } const cases[] = {
        {"x to y lost", "8", "sp8", false, 99, 0, 12, {0, 0}, {0, 0}},
        {"y to x lost: one failed read at the end", "8", "sp2", false, 99, 0, 12, {0, 1}, {0, 0}},
        // The first three frames of x are let pass; the index of y sets that of x back.
        {"both spoiled", "8", "none", true, 99, 0, 12, {9, 12}, {0, 12}},
        {"both lost, two silent turns before a hold", "8", "sp", false, 99, 4, 5, {0, 6}, {0, 0}},
        {"both lost, one silent turn before a hold", "8", "sp", false, 99, 3, 4, {0, 2}, {0, 0}},
        {"three frames lost on one port", "2", "sp", false, 5, 0, 12, {0, 0}, {0, 0}},
        {"four frames lost on one port", "2", "sp", false, 6, 0, 12, {4, 0}, {0, 0}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        turn = 0;
        lost_port = c.lost_port;
        lost_from = 2;
        lost_until = c.lost_until;
        is_spoiled = c.is_spoiled;
        const auto start = [&c] { return crossover_test(0, "2", c.y, frame_sample_pattern); };
        (void)run(start, {{"write sp2", c.hold_turn, hold_it},
                          {"nap 50000", 1, release_it},
                          {"write sp2", c.stop_turn, stop_it}});
        for (const size_t index : {0, 1}) {
            EXPECT_EQ(record(static_cast<int>(index) + 1).errors2, c.errors2[index]) << index;
            EXPECT_EQ(record(static_cast<int>(index) + 1).hist_next, c.hist_next[index]) << index;
        }
    }
}

// Every second poll reports a long block.
TEST_F(CallTrace, a_receiver_drops_what_was_there_before_and_during_a_hold) {
    static int polls;
    polls = 0;
    device.has_input = [](const std::string &) { return ++polls % 3 != 2; };
    device.read = [](const std::string &, std::span<uint8_t> room) {
        std::ranges::fill(room.first(16), uint8_t{')'});
        return size_t{16};
    };
    device.shows_cleared = true;
    const auto start = [] { return serial_loop_test(0, "1", paren_pattern); };
    EXPECT_EQ(joined(run(start, {{"read sp1", 2, hold_it},
                                 {"nap 5000", 1, release_it},
                                 {"poll sp1 in 40", 4, stop_it}})),
              opened("sp1") + R"(poll sp1 in 5
read sp1 512, 512 clear
poll sp1 in 5
poll sp1 in 40
read sp1 512, 32 clear
poll sp1 in 40
nap 5000
poll sp1 in 5
poll sp1 in 40
read sp1 512, 32 clear
poll sp1 in 40
nap 5000 finished
)");
}

TEST_F(CallTrace, a_producer_drains_and_pauses_2_ms_after_each_block) {
    const auto start = [] { return producer_test(0, "1", paren_pattern); };
    EXPECT_EQ(joined(run(start, {{"nap 2000", 2, stop_it}})), opened("sp1") + R"-(poll sp1 out 10
write sp1 "))))))))))))))))"
drain sp1
nap 2000
poll sp1 out 10
write sp1 "))))))))))))))))"
drain sp1
nap 2000
nap 5000 finished
)-");
}

TEST_F(CallTrace, an_echo_drains_before_it_waits) {
    waiting = bytes(16, ')');
    device.has_input = is_waiting;
    device.read = read_waiting;
    device.shows_cleared = true;
    const auto start = [] { return echo_test(0, "1", 0); };
    EXPECT_EQ(joined(run(start, {{"drain sp1", 3, stop_it}})), opened("sp1") + R"-(drain sp1
poll sp1 in 100
read sp1 512, 512 clear
write sp1 "))))))))))))))))"
drain sp1
poll sp1 in 100
drain sp1
poll sp1 in 100 stopped
nap 5000 finished
)-");
}

// Such a port has input at once, each time, and every read fails.
TEST_F(CallTrace, a_port_that_has_hung_up_costs_a_pause_with_each_read) {
    struct {
        pid_t (*start)();
        std::string lines;
    } const cases[] = {
        {[] { return serial_loop_test(0, "1", paren_pattern); },
         "poll sp1 in 40\nread sp1 512\npoll sp1 0\nnap 80000\n"},
        {[] { return echo_test(0, "1", 0); },
         "drain sp1\npoll sp1 in 100\nread sp1 512\npoll sp1 0\nnap 100000\n"},
        {[] { return front_panel_test(0); },
         "poll sp6 in 100\nread sp6 10\npoll sp6 0\nnap 100000\n"},
    };
    for (const auto &c : cases) {
        device.other_events = POLLHUP;
        const std::string lines = joined(
            run(c.start, {{"nap", 1, stop_it}, {"nap", 1, [] { device.other_events = 0; }}}));
        EXPECT_NE(lines.find(c.lines), std::string::npos) << lines;
    }
}

std::string zeros(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += " 00";
    return text;
}

std::string sending_of(const std::string &request) {
    return "poll sp5s out 5\ndrain sp5s\nwrite sp5s " + request + "\ndrain sp5s\nyield\n";
}

std::string exchange_of(const std::string &request, const std::string &cleared) {
    return sending_of(request) + "poll sp5s in 6\nsp5s count waiting bytes\nread sp5s 1000, " +
           cleared + " clear\n";
}

// The module at 20 answers until its first outputs are set, the one at 16 is of no known type.
TEST_F(CallTrace,
       a_field_io_exchange_drains_on_both_sides_of_its_request_and_settles_before_reads) {
    static bool is_silent;
    is_silent = false;
    device.has_input = is_waiting;
    device.read = read_waiting;
    device.written = [](const std::string &port, std::span<const uint8_t> sent) {
        if (port != "sp5s" || (is_silent && sent[0] == FIRST_MODULE))
            return;
        const uint8_t command = sent[COMMAND_AT];
        waiting = {sent[0], 0x83, static_cast<uint8_t>(command + 0x80), 0};
        if (command == IDENTIFY_COMMAND)
            waiting[DATA_AT] = sent[0] == FIRST_MODULE ? 221 : 3;
        if (command == STATUS_COMMAND)
            waiting.resize(10);
    };
    device.shows_cleared = true;
    const auto start = [] { return fio_loop_test(0, "5"); };
    const std::string silent = "poll sp5s in 6\nsp5s count waiting bytes\n";
    EXPECT_EQ(joined(run(start, {{"nap 10000", 1, [] { is_silent = true; }},
                                 {"write sp5s 10", 2, stop_it}})),
              R"(open /dev/sp5s rw
sp5s get settings
sp5s set settings and flush
sp5s request 40047300 01 0a 00 00
)" + exchange_of("14 83 3c", "1000") +
                  exchange_of("10 83 3c", "20") + exchange_of("14 83 31 ff", "20") +
                  exchange_of("14 83 37 01" + zeros(31), "20") + "nap 10000\n" +
                  sending_of("14 83 34") + silent + silent + silent + silent + silent + "log 6\n" +
                  R"(poll sp5s out 5
drain sp5s
write sp5s 10 83 3c
drain sp5s stopped
yield stopped
poll sp5s in 6 stopped
sp5s count waiting bytes stopped
read sp5s 1000, 20 clear stopped
nap 5000 finished
close sp5s finished
)");
    EXPECT_EQ(record(2).pid, PID_FINISHED);
}

class SpiCalls : public CallTrace {
protected:
    void SetUp() override {
        CallTrace::SetUp();
        device.has_input = [](const std::string &) { return true; };
        device.read = [](const std::string &, std::span<uint8_t> room) {
            room[0] = 1;
            return room.size();
        };
    }

    // The module answers each command with its type.
    template <uint8_t type>
    static void answer(std::span<const uint8_t> sent, std::span<uint8_t> received) {
        const auto marker = static_cast<uint8_t>(sent[0] + 0x80);
        const size_t length = sent[0] == '1' ? 9 : sent[0] == '4' ? 20 : 3;
        received[5] = marker;
        received[6] = type;
        received[5 + length - 1] = 0xFF ^ marker ^ type;
    }
};

TEST_F(SpiCalls, fill_the_head_of_a_reply_from_the_request) {
    device.transfer = answer<221>;
    (void)trace_of([] {
        constexpr uint8_t REQUEST[] = {20, 0x83, '<'};
        fio_frame reply = {};
        (void)spi_fio_exchange(REQUEST, reply, open("/dev/manufacturer", O_RDWR));
        std::copy_n(reply.begin(), 4, reinterpret_cast<uint8_t *>(&record(1).unit));
    });
    EXPECT_EQ(memcmp(&record(1).unit, "\x14\x83\xbc\xdd", 4), 0);
}

const std::string SPI_START = R"(open /dev/manufacturer rw nonblock
manufacturer mode 02
manufacturer bits 08
manufacturer speed 250000
transfer manufacturer 46 at 250000/8 3c c3 00 00 00 00 00 00
nap 4000
transfer manufacturer 53 at 250000/8 31 ff 31 00 00 00 00 00
nap 20000
)";

std::string loopback_calls(const std::string &name) {
    return "open /dev/" + name + " rw\n" + name + " mode 02\n" + name + " bits 08\n" + name +
           " speed 250000\ntransfer " + name +
           " 20 at 250000/8 23 23 23 23 23 23 23 23 x2\nnap 5000 finished\n";
}

std::string memory_calls(const std::string &name) {
    return "open /dev/" + name + " rw\npoll " + name + " in 2\nseek " + name + " 0\nread " + name +
           " 32\nnap 5000\nclose " + name;
}

TEST_F(SpiCalls, of_an_unknown_module_are_identification_and_status_and_go_on_under_the_hold) {
    device.transfer = answer<1>;
    const auto start = [] { return spi_fio_loop_test(0, "/dev/manufacturer"); };
    EXPECT_EQ(joined(run(start, {{"nap 50000", 2, stop_it}})), SPI_START + R"(nap 50000
transfer manufacturer 53 at 250000/8 31 ff 31 00 00 00 00 00
nap 50000
transfer manufacturer 53 at 250000/8 31 ff 31 00 00 00 00 00 stopped
nap 5000 stopped
close manufacturer finished
)");
}

TEST_F(SpiCalls, of_a_step_set_the_output_let_it_settle_and_read) {
    device.transfer = answer<221>;
    const auto start = [] { return spi_fio_loop_test(0, "/dev/manufacturer"); };
    auto lines = run(start, {{"nap 30000", 2, stop_it}});
    ASSERT_EQ(lines.size(), 8u + 64 * 3 + 2);
    lines.resize(8 + 2 * 3);
    EXPECT_EQ(joined(lines),
              SPI_START + R"(transfer manufacturer 78 at 250000/8 37 01 00 00 00 00 00 00
nap 30000
transfer manufacturer 63 at 250000/8 34 cb 00 00 00 00 00 00
transfer manufacturer 78 at 250000/8 37 02 00 00 00 00 00 00
nap 30000
transfer manufacturer 63 at 250000/8 34 cb 00 00 00 00 00 00 stopped
)");
}

TEST_F(SpiCalls, of_memories_open_and_close_them_in_each_turn_and_of_loopbacks_keep_them_open) {
    device.transfer = [](std::span<const uint8_t> sent, std::span<uint8_t> received) {
        std::ranges::copy(sent, received.begin());
    };
    const std::string present = "open /dev/datakeypresent ro nonblock\nread datakeypresent 1\n"
                                "close datakeypresent\n";
    const std::string end = " stopped\nnap 5000 finished\n";
    struct {
        int32_t selector;
        const char *last_call;
        std::string lines;
    } const cases[] = {
        {1, "nap 5000",
         present + memory_calls("datakey") + "\n" + present + memory_calls("datakey") + end},
        {2, "nap 5000", memory_calls("eeprom") + "\n" + memory_calls("eeprom") + end},
        {4, "transfer", loopback_calls("reserved")},
        {8, "transfer", loopback_calls("manufacturer")},
    };
    for (const auto &c : cases) {
        const auto start = [&] { return spi_device_test(0, c.selector); };
        EXPECT_EQ(joined(run(start, {{c.last_call, 2, stop_it}})), c.lines) << c.selector;
        EXPECT_EQ(record(1).unit, c.selector);
        EXPECT_EQ(record(1).read_count, 2u);
    }
}

TEST_F(CallTrace, a_memory_pass_maps_three_quarters_holds_them_for_5_ms_and_unmaps_them) {
    const auto start = [] { return dram_test(0); };
    EXPECT_EQ(joined(run(start, {{"nap 5000", 2, stop_it}})), R"(count pages
map 65536 x2
nap 5000
unmap 65536 x2
map 65536 x2
nap 5000
unmap 65536 stopped x2
nap 5000 finished
)");
}

TEST_F(CallTrace, a_file_copy_flushes_after_each_write_and_pauses_5_ms) {
    const auto start = [] {
        file_copy_test(0, "a", "b", 0);
        return started_process(1);
    };
    const std::string block = " \"" + std::string(40, 'U') + "\"\n";
    EXPECT_EQ(joined(run(start, {{"nap 5000", 1, stop_it}})),
              "open a rw\nopen a rw create 700\nwrite a" + block +
                  "open b rw create 700\nseek b 0\nseek a 0\nwrite a" + block + "sync\nwrite b" +
                  block + R"(sync
seek b 0
seek a 0
read a 512
read b 512
nap 5000
nap 5000 finished
close b finished
close a finished
unlink a finished
unlink b finished
)");
}

TEST_F(CallTrace, a_filesystem_test_keeps_the_descriptors_of_kept_files_and_leaves_its_directory) {
    std::filesystem::create_directory("kept");
    write_whole("kept/file-0003", file_bytes(512));
    const auto start = [] {
        filesystem_test(0, "kept");
        return started_process(1);
    };
    const auto all = run(start, {{"read file", 1, stop_it}});
    const auto count = [&](const char *line) {
        return std::ranges::count_if(all, [&](const auto &each) { return each.starts_with(line); });
    };
    EXPECT_EQ(count("open file-"), 16 + 16);
    EXPECT_EQ(count("close file-"), 15 + 16);
    EXPECT_EQ(count("open directory ."), 1);
    EXPECT_EQ(count("close directory"), 1);
    EXPECT_EQ(count("unlink file-000"), std::ranges::count_if(all, [](const auto &each) {
                  return each.starts_with("unlink") && each.ends_with(" stopped");
              }));
    EXPECT_EQ(count("unlink file-000"), 16);
    EXPECT_EQ(all.front(), "enter kept");
    EXPECT_EQ(all.back(), "enter /r0 finished");
}

// Only commands that are written down: the first case shows that none would be run.
TEST_F(CallTrace, the_panel_drains_what_it_writes_and_flushes_after_each_command_of_a_restart) {
    ASSERT_EQ(joined(trace_of([] { (void)!system("exit 1"); })), "system exit 1\n");
    static int keys;
    keys = 0;
    device.has_input = [](const std::string &) { return ++keys <= 4; };
    device.read = [](const std::string &, std::span<uint8_t> room) {
        room[0] = 's';
        return size_t{1};
    };
    const std::string key = "poll sp6 in 100\nread sp6 10\nwrite sp6 \"\\e[2J\"\ndrain sp6\n";
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
)" + escape + "poll sp6 in 100 x19\nwrite sp6 \"" +
                  std::string(40, 'A') +
                  "\"\nwrite sp6 \"\\r\\n\"\npoll sp6 in 100 x20\nwrite sp6 \"" +
                  std::string(40, 'B') + "\"\nwrite sp6 \"\\r\\n\" stopped\nnap 5000 finished\n");
    EXPECT_EQ(record(1).unit, 6);
}

TEST_F(CallTrace, under_a_hold_receiver_and_producer_nap_5_ms_and_the_others_50_ms) {
    struct {
        const char *name;
        void (*start)();
        const char *naps;
    } const cases[] = {
        {"receiver", [] { (void)serial_loop_test(0, "1", paren_pattern); }, "nap 5000 x2\n"},
        {"producer", [] { (void)producer_test(0, "1", paren_pattern); }, "nap 5000 x2\n"},
        {"fio", [] { (void)fio_loop_test(0, "5"); }, "nap 50000 x2\n"},
        {"spi", [] { (void)spi_device_test(0, 3); }, "nap 50000 x2\n"},
        {"dram", [] { (void)dram_test(0); }, "nap 50000 x2\n"},
        {"files", [] { filesystem_test(0, "."); }, "nap 50000 x2\n"},
        {"copy", [] { file_copy_test(0, "a", "b", 0); }, "nap 50000 x2\n"},
        {"echo", [] { (void)echo_test(0, "1", 0); }, "nap 50000 x2\n"},
    };
    for (const auto &c : cases) {
        const auto start_held = [&] {
            hold_it();
            c.start();
            return started_process(record_count);
        };
        const auto all = run(start_held, {{"nap", 2, stop_it}});
        EXPECT_EQ(lines_with(all, "nap"), std::string(c.naps) + "nap 5000 finished\n") << c.name;
    }
}

// What a set of signals would begin with if nobody emptied it.
void fill_the_stack() {
    volatile uint8_t garbage[8192];
    for (volatile uint8_t &byte : garbage)
        byte = 0xFF;
}

TEST_F(CallTrace, the_supervisor_masks_handles_kills_and_lists_in_this_order) {
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

TEST_F(CallTrace, the_console_port_of_board_variant_219_opens_at_9600_as_does_every_later_port) {
    platform_code = 219;
    (void)trace_of([] {
        (void)open_async_port("2", 0);
        record(1).unit = static_cast<int32_t>(port_speed_code);
        (void)open_async_port("1", 0);
        record(2).unit = static_cast<int32_t>(port_speed_code);
    });
    platform_code = 0;
    EXPECT_EQ(record(1).unit, static_cast<int32_t>(SPEED_115200));
    EXPECT_EQ(record(2).unit, static_cast<int32_t>(SPEED_9600));
}

} // namespace
