// What hk_board says to options that it cannot take.

#include <gtest/gtest.h>

#include "tests/support/board_run.h"

namespace {

const struct {
    std::vector<std::string> options;
    const char *says;
} CASES[] = {
    {{"--cabel", "2-8"}, "--cable PORT-PORT --loop PORT"},
    {{"--cable", "2-9"}, "--cable 2-9: port 9: ports are 1 to 8"},
    {{"--cable", "2-2"}, "two different ports"},
    {{"--cable", "2-8s"}, "of one kind"},
    {{"--cable", "2-8", "--loop", "8"}, "plugged into port 8 already"},
    {{"--fault", "melt:2"}, "flip:PORT:N"},
    {{"--cable", "2-8", "--fault", "flip:2:0"}, "the form is flip:PORT:N, with 1 to 1000000000"},
    {{"--fio", "20=221", "--fault", "dead:20:3.9"},
     "the form is dead:MODULE:BYTE.BIT, with 0 to 31 and 1 to 8: that output drives nothing"},
    {{"--fault", "gone:led:3"}, "the form is gone:PART: PART is not there"},
    {{"--cable", "2-8", "--fault", "drop:3:10"}, "its ports are: 2 8"},
    {{"--cable", "2-8", "--fault", "lines:2"}, "no cable 2 that can have it; its cables are: 2-8"},
    {{"--fio", "20=221", "--fault", "stuck:21:1.1"}, "its modules are: 20"},
    {{"--fio", "20=221", "--fault", "stuck:20:9.1"}, "are in bytes 0 1 2 3 4 5 6 7"},
    {{"--fio", "20=221", "--fault", "dead:20:8.1"}, "are in bytes 0 1 2 3 4 5 6 7"},
    {{"--fio", "20=221", "--fault", "silent:20:3"}, "commands 1 4 7 12"},
    {{"--fio", "20=221", "--fault", "check:20:3"}, "its SPI modules are: none"},
    {{"--spi", "221", "--fault", "stray:manufacturer:3"}, "its sync modules are: none"},
    {{"--port", "3", "--fault", "cut:3"}, "its ports are: none"},
    {{"--port", "3", "--fault", "hangup:3:1"}, "its serial nodes are: none"},
    {{"--loop", "5s", "--fault", "cts:5s:0"}, "its modem lines are: none"},
    {{"--feed", "1:/proc/version", "--fault", "cts:1:1"}, "possible on modem line 1: level 0"},
    {{"--feed", "1=10:/proc/version"}, "a speed of 50 to 4000000"},
    {{"--cable", "5s-6s", "--fault", "lines:5s-6s"}, "its cables are: none"},
    {{"--cable", "2-8", "--fault", "speed:2:0"}, "speed:PORT:PERCENT"},
    {{"--spi", "219", "--fault", "dead:manufacturer:0.8"}, "are bits 1 2 3 4 5 6 7"},
    {{"--feed", "1:/proc/version", "--fault", "hangup:feed1:3"},
     "no serial node feed1 that can have it; its serial nodes are: 1"},
    {{"--feed", "1s:/proc/version", "--fault", "lostbyte:feed1s:3"}, "its async lines are: none"},
    {{"--feed", "1s=9600:/proc/version"}, "a synchronous port has one speed"},
    {{"--clock", "real", "--speed", "4"}, "--speed: it needs --clock virtual"},
    {{"--clock", "real", "--start", "2026-01-01"}, "--start: it needs --clock virtual"},
    {{"--clock", "virtual", "--start", "2026-02-30"}, "--start 2026-02-30: a start is a date"},
    {{"--clock", "real", "--calls", "/dev/null"}, "--calls: it needs --clock virtual"},
    {{"--clock", "real", "--strict"}, "--strict: it needs --clock virtual"},
    {{"--seed", "7", "--replay", "run.log"}, "--replay takes no other option and no program"},
    {{"--replay", "run.log"}, "--replay takes no other option and no program"},
    {{"--replay", "run.log", "--enter", "left"}, "--enter takes no other option"},
    {{"--datakey", "absent", "--fault", "gone:datakey"}, "its removable parts are: eth0 led log"},
    {{"--eeprom", "short", "--fault", "weak:eeprom:20.1"}, "bytes 0 to 19"},
    {{"--fault", "slow:eeprom:5"}, "its memory nodes are: none"},
    {{"--fault", "full:r1"}, "its stores are: r0"},
    {{"--fault", "gone:led@3-2"}, "@FROM-TO with FROM below TO"},
    {{"--seed", "-1"}, "--seed -1: a seed is a number"},
    {{"--fault", "cut:2"}, "its ports are: none"},
    {{"--spi", "loop", "--spi", "219"}, "/dev/manufacturer has a device already"},
    {{"--loop", "5s", "--fio", "20=221"}, "plugged into port 5s already"},
    {{"--mac", "02:00:00"}, "--mac 02:00:00: not a unicast hardware address"},
    {{"--mac", "00:00:00:00:00:00"}, "not a unicast hardware address"},
    {{"--for", "soon"}, "--for soon: --for takes seconds"},
    {{"--keys", "a \\q"}, "\"\\q\""},
    {{"--keys", "a\\"}, "\"a\\\""},
    {{"--keys", "\\x1"}, "\"\\x1\""},
    {{"--keys", "@"}, "\"@\""},
    {{"--keys", "@-1"}, "\"@-1\""},
    {{"--keys", "@1s"}, "\"@1s\""},
    {{"--cable", "2-6", "--keys", "a"}, "port 6"},
};

TEST(Board, wrong_options_are_refused_with_the_valid_ones) {
    for (const auto &[options, says] : CASES) {
        board_run run = board_run::program(options, {"/bin/sh", "-c", "echo started"});
        EXPECT_EQ(run.finish(), 2) << says;
        EXPECT_NE(run.errors.find(says), std::string::npos) << run.errors;
        EXPECT_EQ(run.output, "");
    }
}

} // namespace
