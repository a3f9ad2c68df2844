// The calls of the field I/O tests and of the tests of SPI devices.

#include "tests/calls/call_trace.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>

#include "fio/fio_frame.h"
#include "fio/spi/spi_exchange.h"
#include "fio/start.h"

namespace {

using FioCalls = CallTrace;

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
    return sending_of(request) + "poll sp5s in pri 6\nsp5s count waiting bytes\nread sp5s 1000, " +
           cleared + " clear\n";
}

// The module at 20 answers until its first outputs are set, the one at 16 is of no known type.
TEST_F(FioCalls, a_field_io_exchange_drains_on_both_sides_of_its_request_and_settles_before_reads) {
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
    const std::string silent = "poll sp5s in pri 6\nsp5s count waiting bytes\n";
    EXPECT_EQ(joined(run(start, {{"nap 10000", 1, [] { is_silent = true; }},
                                 {"write sp5s 10", 2, stop_it}})),
              R"(read priority
open /dev/sp5s rw
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
poll sp5s in pri 6 stopped
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

const std::string SPI_HELD = R"(nap 50000
transfer manufacturer 53 at 250000/8 31 ff 31 00 00 00 00 00
nap 50000
transfer manufacturer 53 at 250000/8 31 ff 31 00 00 00 00 00 stopped
nap 5000 stopped
close manufacturer finished
)"; // stopped in the second nap

std::string loopback_calls(const std::string &name) {
    return "open /dev/" + name + " rw\n" + name + " mode 02\n" + name + " bits 08\n" + name +
           " speed 250000\ntransfer " + name +
           " 20 at 250000/8 23 23 23 23 23 23 23 23 x2\nnap 5000 finished\n";
}

std::string memory_calls(const std::string &name) {
    return "open /dev/" + name + " rw\npoll " + name + " in pri 2\nseek " + name + " 0\nread " +
           name + " 32\nnap 5000\nclose " + name;
}

TEST_F(SpiCalls, of_an_unknown_module_are_identification_and_status_and_go_on_under_the_hold) {
    device.transfer = answer<1>;
    const auto start = [] { return spi_fio_loop_test(0, "/dev/manufacturer"); };
    EXPECT_EQ(joined(run(start, {{"nap 50000", 2, stop_it}})), SPI_START + SPI_HELD);
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

TEST_F(SpiCalls, of_a_module_at_work_that_is_held_ask_for_its_status) {
    device.transfer = answer<221>;
    const auto start = [] { return spi_fio_loop_test(0, "/dev/manufacturer"); };
    auto lines = run(start, {{"nap 30000", 1, hold_it}, {"nap 50000", 2, stop_it}});
    lines.erase(lines.begin(), std::ranges::find(lines, "nap 50000"));
    EXPECT_EQ(joined(lines), SPI_HELD);
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

} // namespace
