// What is made of what was read.

#include <gtest/gtest.h>

#include "tests/support/log_text.h"

namespace {

// One list after another, every ten seconds, of one record.
std::string lists_of(const std::vector<std::string> &items) {
    std::string text;
    int second = 0;
    for (const std::string &each : items)
        text += list(second += 10, {each});
    return text;
}

// The first line of such a log does not count: it may be torn.
std::string without_times(const std::string &log) {
    std::string text;
    for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1)
        text += log.substr(log.find(BOARD, at), log.find('\n', at) + 1 - log.find(BOARD, at));
    return text;
}

std::string dram(int64_t blocks) {
    const std::string count = std::to_string(blocks);
    return item("8 dram user alloc " + count + " test " + count);
}

std::string crossover(int64_t wrote, int64_t x_read, const char *x_errors, int64_t y_read,
                      const char *y_errors, int second) {
    const std::string start = " loop wrote " + std::to_string(wrote) + " read ";
    return list(second, {item("0 sp2" + start + std::to_string(x_read), x_errors),
                         item("5 sp8" + start + std::to_string(y_read), y_errors)});
}

struct verdict_case {
    const char *claim;
    std::string log;
    exit_code status;
    std::vector<const char *> said; // in the table
};

const verdict_case CASES[] = {
    {"a good run passes",
     good_run(),
     EVERYTHING_PASSES,
     {"PASS: 2 of 2 records good, 1 run, 1 board"}},
    {"no list is no success", at(10, "hello"), NOTHING_WAS_TESTED, {"there is no results list"}},
    {"an empty list is none either", list(10, {}), NOTHING_WAS_TESTED, {"no test was started"}},
    {"held tests are not tested",
     lists_of({dram(0), dram(0)}),
     NOTHING_WAS_TESTED,
     {"idle       dram user", "hk_ctl release dram"}},
    {"a second module that was not asked yet is idle",
     list(10, {item("10 FIOloop sp5s wrote 9 read 9"), item("1 sp0 consume read 0 verify 0")}),
     EVERYTHING_PASSES,
     {"pass       FIOloop sp5s", "idle       sp0 consume"}},
    {"an idle record among good ones is named",
     list(10, {producer(5), item("6 Datakey spi wrote 0 read 0")}),
     EVERYTHING_PASSES,
     {"PASS: 1 of 2", "idle, so not tested: Datakey spi"}},
    {"one error fails, with its first list",
     lists_of({producer(5), producer(9, "0,0,1"), producer(12, "0,0,1")}),
     SOMETHING_IS_WRONG,
     {"FAIL       sp2 produce",
      "error 3, failed opens and failed writes: 1; first in the list of 2026-11-22 00:00:20"}},
    {"reads of a receiver are not compared with blocks of a producer",
     list(10, {receiver(70, 70), producer(100)}) + list(20, {receiver(140, 140), producer(200)}),
     EVERYTHING_PASSES,
     {}},
    {"of many bad records the first ones are named",
     list(10, std::vector(10, producer(5, "0,0,1"))),
     SOMETHING_IS_WRONG,
     {" and 2 more"}},
    {"errors of a run of ten minutes have a pace",
     list(10, {producer(5)}) + list(610, {producer(9, "0,0,1")}),
     SOMETHING_IS_WRONG,
     {"00:10:10, 6 an hour"}},
    {"silences of a receiver are errors",
     lists_of({receiver(5, 5, "0,0,2")}),
     SOMETHING_IS_WRONG,
     {"silences and failed reads: 2", "blocks do not arrive at port 1 in time"}},
    {"a record that stops is stalled",
     lists_of({producer(5), producer(9), producer(9)}),
     SOMETHING_IS_WRONG,
     {"STALLED", "no progress for 10 s from 2026-11-22 00:00:20"}},
    {"so is one that does not move between the only two lists",
     lists_of({producer(5), producer(5)}),
     SOMETHING_IS_WRONG,
     {"STALLED", "no progress for 10 s from 2026-11-22 00:00:10"}},
    {"a stall that ends is one too",
     lists_of({producer(5), producer(9), producer(9), producer(12)}),
     SOMETHING_IS_WRONG,
     {"STALLED", "it went on later"}},
    {"lists that a signal adds show no stall",
     lists_of({producer(5), producer(9), producer(12)}) + list(33, {producer(12)}) +
         list(33, {producer(12)}),
     EVERYTHING_PASSES,
     {}},
    {"nor does a list of the end that comes late after that of the stop",
     lists_of({producer(5), producer(9), producer(12)}) + list(32, {producer(13)}) +
         list(42, {producer(13)}),
     EVERYTHING_PASSES,
     {}},
    {"the period is that of most lists, though some are lost at the end",
     lists_of({producer(1), producer(2), producer(3), producer(3), producer(4), producer(5)}) +
         list(80, {producer(6)}) + list(100, {producer(7)}),
     SOMETHING_IS_WRONG,
     {"STALLED", "no progress for 10 s"}},
    {"a list that a signal added does not make the period shorter",
     list(10, {producer(5)}) + list(17, {producer(7)}) + list(20, {producer(9)}) +
         list(30, {producer(12)}) + list(36, {producer(12)}),
     EVERYTHING_PASSES,
     {}},
    {"a stall that begins with a list that a signal added",
     lists_of({producer(5), producer(9), producer(12)}) + list(32, {producer(13)}) +
         list(40, {producer(13)}) + list(50, {producer(13)}),
     SOMETHING_IS_WRONG,
     {"STALLED", "no progress for 18 s"}},
    {"a list without its end is cut",
     good_run() + at(50, "<OL>") + at(50, producer(9)),
     SOMETHING_IS_WRONG,
     {"CUT", "is not complete", "wrong: run 2 (1 of 1 lists"}},
    {"a lost line in a list is noticed",
     list(10, {receiver(1, 1), producer(1)}) + list(20, {producer(2)}) +
         list(30, {receiver(3, 3), producer(3)}),
     SOMETHING_IS_WRONG,
     {"1 of 3 lists is not complete", "1 run,"}},
    {"what is left of a list is not counted for another record",
     list(10, {receiver(1, 1), producer(1)}) + at(20, producer(2)) + at(20, "</OL><P>") +
         list(30, {receiver(3, 3), producer(3)}),
     SOMETHING_IS_WRONG,
     {"1 of 3 lists is not complete", "1 run,"}},
    {"a log without times", without_times(good_run()), EVERYTHING_PASSES, {"4 lists"}},
    {"a log that begins within a list",
     at(9, producer(4)) + at(9, "</OL><P>") + good_run(),
     EVERYTHING_PASSES,
     {}},
    {"a line of two megabytes hides nothing that follows it",
     std::string(size_t{2} << 20, 'x') + "\n" + good_run(),
     EVERYTHING_PASSES,
     {"5 lists"}},
    {"a line and a start that the network repeats are no list",
     good_run() + at(20, producer(4000)) + at(20, "<OL>"),
     EVERYTHING_PASSES,
     {}},
    {"an end that the network repeats later is no second run, though a list was cut before",
     at(10, "<OL>") + at(10, producer(1)) + list(20, {producer(2)}) + list(30, {producer(3)}) +
         at(20, "</OL><P>"),
     SOMETHING_IS_WRONG,
     {"run 1: CUT"}},
    {"a line that cannot be read spoils its list",
     at(10, "<OL>") + at(10, producer(4)) + at(10, "<LI> 5 sp8 l\xff") + at(10, "</OL><P>"),
     SOMETHING_IS_WRONG,
     {"lines that could not be read: 1"}},
    {"counters that wrap are neither errors nor a restart",
     lists_of({producer(2147400000), producer(2147483600), producer(2147490000),
               producer(4294960000), producer(4294967295), producer(70000), producer(140000)}),
     EVERYTHING_PASSES,
     {"1 run,", "4295107296 verify"}},
    {"an error counter that wraps goes on counting",
     lists_of({producer(5, "0,0,-5"), producer(9, "0,0,3")}),
     SOMETHING_IS_WRONG,
     {"failed writes: 4294967299"}},
    {"counters that fall are another run",
     lists_of({producer(5000), producer(9000), producer(4000)}),
     EVERYTHING_PASSES,
     {"2 runs"}},
    {"a port that a test writes when it is at work is none",
     list(10, {item("3 sp0 produce wrote 0 verify 0")}) + list(20, {producer(5)}),
     EVERYTHING_PASSES,
     {"1 run,"}},
    {"so is what follows two equal lists, the last ones of a run",
     lists_of({producer(5), producer(9)}) + list(25, {producer(10)}) + list(25, {producer(10)}) +
         list(35, {producer(15)}),
     EVERYTHING_PASSES,
     {"2 runs"}},
    {"so is another process",
     list(10, {producer(50)}, "rack7 oven[812]") + list(20, {producer(90)}, "rack7 oven[813]"),
     EVERYTHING_PASSES,
     {"2 runs"}},
    {"so are other records",
     lists_of({producer(50), receiver(50, 50)}),
     EVERYTHING_PASSES,
     {"2 runs"}},
    {"so is a gap",
     list(10, {producer(50)}) + list(20, {producer(90)}) + list(9000, {producer(95)}),
     EVERYTHING_PASSES,
     {"2 runs"}},
    {"the errors of an earlier run count",
     list(10, {producer(50, "0,0,3")}) + list(20, {producer(90)}),
     SOMETHING_IS_WRONG,
     {"run 1: FAIL", "run 2: pass"}},
    {"a clock that is set back is no restart",
     list(5000, {producer(5)}) + list(5010, {producer(9)}) + list(20, {producer(12)}) +
         list(30, {producer(15)}),
     EVERYTHING_PASSES,
     {"1 run,"}},
    {"two boards mixed are told apart",
     good_run("rack7 Stress 020000000001 ") +
         list(10, {producer(1, "0,0,1")}, "rack7 Stress 020000000002 "),
     SOMETHING_IS_WRONG,
     {"wrong: sp2 produce of Stress 020000000002 on rack7",
      "board Stress 020000000001 on rack7: pass"}},
    {"the same ident on two hosts is two boards",
     good_run("a oven") + good_run("b oven"),
     EVERYTHING_PASSES,
     {"2 boards"}},
    {"a board of which nothing was tested is no success",
     good_run("a oven") + list(10, {dram(0)}, "b oven"),
     NOTHING_WAS_TESTED,
     {}},
    {"a test that counts in bursts is no sign of two runs",
     lists_of({dram(100), dram(200), dram(210), dram(400), dram(410), dram(600), dram(610)}),
     EVERYTHING_PASSES,
     {"1 run,"}},
    {"nor are runs that end at almost the same counts",
     list(10, {producer(1000)}) + list(10, {producer(1000)}) + list(70, {producer(1010)}) +
         list(70, {producer(1010)}) + list(130, {producer(1020)}) + list(130, {producer(1020)}),
     EVERYTHING_PASSES,
     {"3 runs"}},
    {"two runs at once under one ident never pass",
     list(10, {producer(1000)}) + list(12, {producer(500)}) + list(20, {producer(2000)}) +
         list(22, {producer(1500)}) + list(30, {producer(3000)}) + list(32, {producer(2500)}),
     SOMETHING_IS_WRONG,
     {"AMBIGUOUS", "two runs write lists under this ident"}},
    {"three runs whose lists come in turn do not pass either",
     list(10, {producer(1000)}) + list(13, {receiver(700, 700)}) +
         list(16, {item("4 sp4 consume read 300 verify 300")}) + list(20, {producer(2000)}) +
         list(23, {receiver(1400, 1400)}) + list(26, {item("4 sp4 consume read 300 verify 300")}),
     SOMETHING_IS_WRONG,
     {"AMBIGUOUS", "3 runs"}},
    {"nor do they if their lines mix",
     at(10, "<OL>") + at(10, producer(5)) + at(10, "<OL>") + at(10, producer(3)) +
         at(10, "</OL><P>") + at(10, "</OL><P>"),
     SOMETHING_IS_WRONG,
     {"AMBIGUOUS"}},
    {"a crossover's line is what its port sent",
     crossover(500, 499, "0,0,0", 0, "0,499,0", 10) +
         crossover(900, 899, "0,0,0", 0, "0,899,0", 20),
     SOMETHING_IS_WRONG,
     {"pass       sp2 loop", "frames from port 8 do not reach port 2: transmitter 8, "
                             "cable or receiver 2; check with -E82"}},
    {"bits that change on the way of x",
     crossover(500, 450, "50,0,0", 499, "0,0,0", 10),
     SOMETHING_IS_WRONG,
     {"bits change on the way from port 2 to port 8", "pass       sp8 loop"}},
    {"modem lines",
     crossover(500, 499, "2,0,0", 499, "2,0,0", 10),
     SOMETHING_IS_WRONG,
     {"modem lines between port 2 and port 8, in both directions"}},
    {"modem lines of one direction",
     crossover(500, 499, "0,0,0", 499, "1,0,0", 10),
     SOMETHING_IS_WRONG,
     {"RTS of port 2, or CTS or DCD of port 8"}},
    {"late frames count in both records and have one direction",
     crossover(500, 499, "0,0,3", 499, "0,0,3", 10),
     SOMETHING_IS_WRONG,
     {"FAIL       sp8 loop -E              499 read                  3 errors  frames from port 2 "
      "reach port 8 too late"}},
    {"time-outs for frames that do not arrive are no fault of the other direction",
     crossover(500, 0, "0,499,499", 499, "0,0,499", 10),
     SOMETHING_IS_WRONG,
     {"frames from port 2 do not reach port 8: transmitter 2, cable or receiver 8; check with -E82",
      "time-outs at port 8 for the frames from port 2 that do not arrive; its own reach port 2"}},
    {"no cable",
     crossover(500, 0, "2,499,499", 0, "2,499,499", 10),
     SOMETHING_IS_WRONG,
     {"nothing passes between port 2 and port 8: no cable"}},
    {"a port that is missing",
     at(1, "Couldn't open SP8") +
         list(10, {item("0 sp0 loop wrote 0 read 0"), item("5 sp2 loop wrote 0 read 0")}),
     SOMETHING_IS_WRONG,
     {"a port could not be opened: Couldn't open SP8"}},
    {"a module on SPI that is missing",
     list(10, {"<LI> 9 SpiFIOloop sp"}),
     SOMETHING_IS_WRONG,
     {"its device could not be opened"}},
    {"a reply of a wrong length, which no counter shows",
     at(5, "[26 24]") +
         list(10, {item("10 FIOloop sp5s wrote 9 read 9"), item("1 sp5 consume read 9 verify 9")}),
     SOMETHING_IS_WRONG,
     {"FAIL       FIOloop sp5s", "pass       sp5 consume"}},
    {"a message counts for the run in which it comes",
     at(5, "[26 24]") + list(10, {item("10 FIOloop sp5s wrote 9 read 9")}) +
         list(9000, {item("10 FIOloop sp5s wrote 9 read 9")}),
     SOMETHING_IS_WRONG,
     {"run 1: FAIL", "run 2: pass"}},
    {"the messages of a run are counted together, with those after its last list",
     at(5, "[26 24]") + list(10, {producer(5)}) + at(15, "<20 stat 0 204>") +
         list(20, {producer(9)}) + at(25, "[26 24]"),
     EVERYTHING_PASSES,
     {"message \"[26 24]\" and 1 more\n", "did not answer: message \"<20 stat 0 204>\"\n"}},
    {"an eeprom that is read no more",
     at(5, "eeprom too long 5 e 4 f") + list(10, {item("7 eeprom spi wrote 0 read 900")}),
     SOMETHING_IS_WRONG,
     {"STALLED    eeprom spi"}},
    {"a loopback on SPI that works on beside such an eeprom",
     list(5, {item("7 eeprom spi wrote 0 read 900"), item("7 eeprom spi wrote 100 read 100")}) +
         at(6, "eeprom too long 5 e 4 f") +
         list(10, {item("7 eeprom spi wrote 0 read 900"), item("7 eeprom spi wrote 200 read 200")}),
     SOMETHING_IS_WRONG,
     {"STALLED    eeprom spi", "pass       eeprom spi"}},
    {"an eeprom whose pass ends before it begins",
     at(5, "a eeprom too long 5 e 4 f") + list(10, {item("7 eeprom spi wrote 0 read 900")}),
     SOMETHING_IS_WRONG,
     {"STALLED    eeprom spi"}},
    {"an eeprom whose pass takes more than a second",
     at(5, "an eeprom too long 5 e 4 f") + list(10, {item("7 eeprom spi wrote 0 read 900")}),
     SOMETHING_IS_WRONG,
     {"STALLED    eeprom spi"}},
};

TEST(Verdict, each_log_gets_its_verdict) {
    for (const verdict_case &each : CASES) {
        SCOPED_TRACE(each.claim);
        const outcome seen = judge_text(each.log);
        EXPECT_EQ(seen.status, each.status) << seen.report;
        for (const char *part : each.said)
            EXPECT_TRUE(seen.says(part)) << part << "\n" << seen.report;
    }
}

TEST(Verdict, a_fault_of_the_modem_lines_has_no_sample) {
    EXPECT_FALSE(judge_text(crossover(500, 499, "2,0,0", 499, "2,0,0", 10)).says("sample"));
}

TEST(Expectation, names_every_record_of_the_plan_in_its_order) {
    const auto records =
        expect("-d1 -l10 -I 'oven 3' -C1 -P4 -F -L -S1 -S8 -Y /r0/t -M a:b:1 -D -K -E28");
    std::string names;
    for (const expected_record &record : records)
        names += std::to_string(record.kind) + " " + record.name + (record.is_held ? " held" : "") +
                 "; ";
    EXPECT_EQ(names,
              "3 sp1 consume; 4 sp4 produce; 10 FIOloop sp5s; 1 sp5 consume; 9 SpiFIOloop spBs; "
              "6 Datakey spi; 7 eeprom spi; 11 filesys opt held; 5 bbsram file_copy held; "
              "8 dram user held; 0 panel; 0 sp2 loop; 5 sp8 loop; ");
    EXPECT_TRUE(expect("-C5 -C5 -F").size() == 1); // the port is taken
    EXPECT_EQ(expect("-Y /r0/a\\ b").at(0).option, "-Y/r0/a b");
    EXPECT_THROW(expect("-Q"), std::invalid_argument);
    EXPECT_THROW(expect("-I 'oven"), std::invalid_argument);
}

TEST(Expectation, what_is_missing_more_or_idle_decides) {
    EXPECT_EQ(judge_text(good_run(), expecting("-C1 -P2")).status, EVERYTHING_PASSES);
    const outcome less = judge_text(good_run(), expecting("-C1 -P2 -K -h -E55"));
    EXPECT_EQ(less.status, SOMETHING_IS_WRONG);
    EXPECT_TRUE(less.says("MISSING    sp5 loop    -E55") && less.says("not judged panel"))
        << less.report;
    const outcome more = judge_text(good_run(), expecting("-P2"));
    EXPECT_TRUE(more.status == SOMETHING_IS_WRONG && more.says("UNEXPECTED sp1 consume") &&
                more.says("not expected"))
        << more.report;
    EXPECT_TRUE(more.says("pass       sp2 produce") && !more.says("MISSING")) << more.report;
    const std::string idle = list(10, {producer(5), dram(0)});
    EXPECT_EQ(judge_text(idle).status, EVERYTHING_PASSES);
    const outcome expected = judge_text(idle, expecting("-P2 -D"));
    EXPECT_TRUE(expected.status == NOTHING_WAS_TESTED && expected.says("NOT ALL TESTED: 1 of 2"))
        << expected.report;
    const std::string whole_run = list(20, {producer(1), dram(1)});
    EXPECT_EQ(judge_text(idle + whole_run, expecting("-P2 -D")).status, NOTHING_WAS_TESTED);
}

TEST(Allowance, counts_in_all_or_for_each_hour_that_has_begun) {
    const std::string text = list(10, {receiver(5, 5)}) + list(20, {receiver(6, 6)}) +
                             list(30, {receiver(7, 7, "0,0,1")}) +
                             list(40, {receiver(8, 8, "0,0,3")});
    const auto status = [&](const std::string &rule) {
        judge_rules rules;
        rules.allowed.push_back(read_allowance(rule));
        return judge_text(text, rules).status;
    };
    for (const char *rule : {"consume:3<=3", "receiver:3<=3/h", "sp1 consume:3<=99"})
        EXPECT_EQ(status(rule), EVERYTHING_PASSES) << rule;
    for (const char *rule : {"consume:3<=2", "consume:1<=3", "sp2 consume:3<=3", "loop:3<=9"})
        EXPECT_EQ(status(rule), SOMETHING_IS_WRONG) << rule;
    EXPECT_EQ(read_allowance("consume:3<=10/h").limit(int64_t{2} * 3600 * 1000 + 1), 30U);
    for (const char *rule :
         {"consume", "consume:4<=1", "consume:1<=x", "consume:1<=1/d", "cosnume:1<=1"})
        EXPECT_THROW(read_allowance(rule), std::invalid_argument) << rule;
    judge_rules rules;
    rules.allowed.push_back(read_allowance("consume:3<=3"));
    EXPECT_TRUE(
        judge_text(text, rules).says("allowed: sp1 consume (silences and failed reads: 3)"));
}

} // namespace
