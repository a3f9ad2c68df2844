// Devices of the simulated board that fail, and SPI nodes that are not used as the hardware needs
// it, as small programs on the board see them.
#include <gtest/gtest.h>
#include <sstream>

#include "tests/support/board_run.h"

namespace {

// What a shell script on the board prints.
std::string output_of(std::vector<std::string> board_options, const std::string &script) {
    board_run run = board_run::program(std::move(board_options), {"/bin/sh", "-c", script});
    EXPECT_EQ(run.finish(), 0) << run.errors;
    return run.output;
}

struct spi_answer {
    std::string bytes;
    int64_t time_us = 0;
};

spi_answer probe(const std::string &device, const std::string &arguments) {
    std::istringstream shown(output_of({"--spi", device}, SPI_PROBE_PATH " /dev/manufacturer " +
                                                              arguments + " || true"));
    spi_answer answer;
    std::getline(shown, answer.bytes);
    shown >> answer.time_us;
    return answer;
}

class Devices : public testing::Test {
    void SetUp() override {
        if (sizeof(HK_EMULATOR) > 1)
            GTEST_SKIP() << "what the board does is the same for every program";
    }
};

TEST_F(Devices, spi_answers_in_its_mode_word_size_and_speed_alone) {
    const struct {
        const char *settings;
        const char *reply;
    } cases[] = {
        {"2 8 250000", "2381 "},  {"2 - 250000", "2381 "}, {"2 8 100000", "2381 "},
        {"- 8 250000", "08e0 "},  {"0 8 250000", "08e0 "}, {"3 8 250000", "08e0 "},
        {"2 16 250000", "08e0 "}, {"2 8 -", "08e0 "},      {"2 8 250001", "08e0 "},
    };
    for (const auto &[settings, reply] : cases)
        EXPECT_EQ(probe("loop", std::string(settings) + " 2381").bytes, reply) << settings;
}

// spidev_release, spidev_ioctl and __spi_validate of the kernel's drivers/spi.
TEST_F(Devices, an_spi_node_keeps_and_refuses_settings_as_spidev_does) {
    const std::string set = SPI_PROBE_PATH " /dev/manufacturer ";
    const auto second = [&](const std::string &first, const std::string &then) {
        const std::string shown =
            output_of({"--spi", "loop"}, "(" + set + first + "; " + set + then + ") 2>&1 || true");
        return shown.substr(shown.find('\n', shown.find('\n') + 1) + 1);
    };
    EXPECT_EQ(second("2 8 250000 2381", "- - 250000 2381").substr(0, 5), "2381 ");
    EXPECT_EQ(second("2 8 250000 2381", "- - - 2381").substr(0, 5), "08e0 ")
        << "the last close sets the speed back";
    EXPECT_EQ(second("2 8 250000 00", "0xff 99 0 2381").substr(0, 66),
              "setting: Invalid argument\nsetting: Invalid argument\nsetting: Inval");
    EXPECT_EQ(second("2 8 250000 00", "2 16 250000 238123"), "Invalid argument\n");
    EXPECT_EQ(second("2 8 250000 00", "2 8 250000 01 02 03 04 05 06").substr(0, 18),
              "01 02 03 04 05 06 ");
}

TEST_F(Devices, an_spi_message_takes_the_time_of_its_clock) {
    const std::string hundred_bytes(200, '0');
    EXPECT_GE(probe("loop", "2 8 250000 " + hundred_bytes).time_us, 3200);
    EXPECT_GE(probe("loop", "2 8 20000 " + hundred_bytes + " " + hundred_bytes).time_us, 80'000);
}

// The module of type 221 is asked what it is: 3c and the check byte c3.
TEST_F(Devices, the_chip_select_stays_between_transfers_unless_it_is_to_change) {
    const std::string identity = "bcdd9e";
    const std::string zeros(40, '0');
    const auto answers = [&](const std::string &transfers) {
        return probe("221", "2 8 250000 " + transfers).bytes.find(identity) != std::string::npos;
    };
    EXPECT_TRUE(answers("3cc3" + zeros));
    EXPECT_TRUE(answers("3cc3 " + zeros));
    EXPECT_TRUE(answers("3c c3 " + zeros));
    EXPECT_FALSE(answers("3cc3+ " + zeros));
    EXPECT_FALSE(answers("3c+ c3 " + zeros));
    EXPECT_TRUE(answers("00+ 3cc3 " + zeros));
}

TEST_F(Devices, that_are_gone_have_no_node_and_come_back) {
    const std::string state =
        "for part in /dev/cpuactive /dev/log; do test -e $part; echo $?; done; "
        "grep -c eth0 /proc/net/dev; od -An -tx1 /dev/datakeypresent; "
        "wc -c </dev/datakey; ";
    const std::string present = "0\n0\n1\n 80\n256\n";
    const std::string gone = "1\n1\n0\n 00\n0\n";
    board_run run = board_run::program(
        {"--datakey", "present", "--fault", "gone:led@0-1", "--fault", "gone:log@0-1", "--fault",
         "gone:eth0@0-1", "--fault", "gone:datakey@0-1"},
        {"/bin/sh", "-c",
         state +
             "until test -e /dev/cpuactive -a -e /dev/log && "
             "grep -q eth0 /proc/net/dev && test -s /dev/datakey; do "
             "sleep 0.05; done; " +
             state});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, gone + present);
    EXPECT_EQ(run.notes(), "fault gone:led struck 1 time\nfault gone:log struck 1 time\n"
                           "fault gone:eth0 struck 1 time\nfault gone:datakey struck 1 time\n");
}

TEST_F(Devices, a_store_is_full_small_or_read_only_and_afterwards_as_before) {
    const std::string fill = "head -c 200000 /dev/zero 2>&1 >/r0/file | grep -o 'No space.*'; "
                             "wc -c </r0/file; ";
    EXPECT_EQ(output_of({"--fault", "size:r0:64"}, fill), "No space left on device\n65536\n");
    EXPECT_EQ(output_of({"--fault", "full:r0@0-1"},
                        fill + "until echo >/r0/file; do sleep 0.05; done; " + fill),
              "No space left on device\n0\n200000\n");
    EXPECT_EQ(output_of({"--fault", "readonly:r0@0-1"}, "touch /r0/a 2>&1 | grep -o 'Read-only.*'; "
                                                        "until touch /r0/a; do sleep 0.05; done; " +
                                                            fill),
              "Read-only file system\n200000\n");
    for (const char *other : {"size:r0:64@1-", "full:r0@1-2"})
        EXPECT_EQ(output_of({"--fault", "readonly:r0", "--fault", other},
                            "sleep 3; touch /r0/a 2>&1 | grep -o 'Read-only.*'"),
                  "Read-only file system\n")
            << other;
}

TEST_F(Devices, a_protected_led_shows_its_state_and_takes_no_other) {
    EXPECT_EQ(output_of({"--fault", "readonly:led"},
                        "(printf '\\001' >/dev/cpuactive) 2>&1 | grep -o 'Read-only.*'; "
                        "od -An -tx1 /dev/cpuactive"),
              "Read-only file system\n 00\n");
}

TEST_F(Devices, memories_fail_at_the_openings_that_are_named) {
    const std::string read_four = "for i in 1 2 3 4; do head -c3 /dev/eeprom | od -An -tx1; "
                                  "sleep 0.2; done";
    EXPECT_EQ(output_of({"--eeprom", "good", "--fault", "fail:eeprom:3"}, read_four),
              " a5 a5 a5\n a5 a5 a5\n a5 a5 a5\n");
    EXPECT_EQ(output_of({"--eeprom", "good", "--fault", "weak:eeprom:1.8"}, read_four),
              " a5 a5 a5\n a5 25 a5\n a5 a5 a5\n a5 25 a5\n");
    EXPECT_EQ(output_of({"--eeprom", "good", "--fault", "slow:eeprom:300"},
                        "start=$(date +%s%3N); head -c1 /dev/eeprom >/dev/null; "
                        "echo $(($(date +%s%3N) - start))"),
              "300\n");
}

TEST_F(Devices, a_fault_that_never_struck_is_said_to_be_so_and_random_ones_tell_their_seed) {
    // In its own time the board logs the seed with its command, in any case.
    board_run run = board_run::program(
        {"--clock", "real", "--cable", "2-8", "--seed", "7", "--fault", "cut:2~60"}, {"true"});
    EXPECT_EQ(run.finish(), 0);
    ASSERT_EQ(run.log.size(), 2U);
    EXPECT_EQ(run.log[0].text, "random faults follow --seed 7");
    EXPECT_EQ(run.log[1].text, "fault cut:2 never struck");
    board_run again = board_run::program(
        {"--clock", "virtual", "--clock", "real", "--cable", "2-8", "--fault", "cut:2~60"},
        {"true"});
    EXPECT_EQ(again.finish(), 0);
    ASSERT_EQ(again.log.size(), 2U);
    EXPECT_NE(again.log[0].text, "random faults follow --seed 1"); // the seed of the other clock
}

} // namespace
