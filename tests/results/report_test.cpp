// What is made of a status report without a log: it does not show everything.

#include <gtest/gtest.h>

#include "tests/support/log_text.h"

namespace {

std::string producer_line(const char *errors) {
    return std::string("sp4, pid   -7 produce, wrote 00002286, errors ") + errors + "\n";
}

std::string receiver_line(const char *rate) {
    return std::string("sp1, pid   -7 consume,               , read 0000450c, errors 0000    ") +
           rate + " bps\n";
}

const std::string GOOD_PRODUCER = producer_line("0000");
const std::string FILES =
    "     pid   -7 filesys, wrote 00000100, read 00000100, errors 0000         7 \n";
const std::string FIO =
    "sp5s,pid   -7 FIOloop, wrote 00000400, read 000003ff, errors 04 00[24 09][25 100][26 00]\n";
const std::string NO_INPUT =
    "sp5s,pid   -7 FIOloop, wrote 00000400, read 000003ff, errors 01 00[24 00][00 00][00 00]\n";
const std::string TWO_INPUTS =
    "sp5s,pid   -7 FIOloop, wrote 00000400, read 000003ff, errors 01 00[56 64][00 00][00 00]\n";
const std::string UNOPENED_SPI = std::string("sp\0s,pid   -7 SpiFIOloop, ", 26) +
                                 "wrote 00000000, read 00000000, errors 00 00"
                                 "[00 00][00 00][00 00]\n";

struct report_case {
    const char *claim;
    std::string text;
    const char *options; // expected; null: nothing is known of them
    exit_code status;
    std::vector<const char *> said; // in the table
};

const report_case REPORT_CASES[] = {
    {"lines that show all of their tests pass if nothing else was expected",
     "\n" + GOOD_PRODUCER + FILES,
     "-P4 -Y /r0/t",
     EVERYTHING_PASSES,
     {"PASS: 2 of 2", "run 1: pass, known from its status report", "8838 wrote", "256 read",
      "this shows no stall", "; a status report alone does not show everything"}},
    {"without --expect other records may have no line",
     "\n" + GOOD_PRODUCER,
     nullptr,
     NOTHING_WAS_TESTED,
     {"pass       sp4 produce", "NOT ALL TESTED", "give the log, or the options"}},
    {"an error fails",
     "\n" + producer_line("0003") + FILES,
     nullptr,
     SOMETHING_IS_WRONG,
     {"FAIL       sp4 produce", "error 3, failed opens and failed writes: 3\n",
      "pass       filesys opt"}},
    {"a receiver's line does not show its bad blocks",
     "\n" + receiver_line("     0"),
     "-C1",
     NOTHING_WAS_TESTED,
     {"not judged sp1 consume", "does not show: bad blocks", "NOT JUDGED: 0 of 1"}},
    {"but its bit rate counts them",
     "\n" + receiver_line("    12"),
     "-C1",
     SOMETHING_IS_WRONG,
     {"FAIL       sp1 consume", "counts blocks that were not good"}},
    {"a crossover has no line, and the last records have none either",
     "\n" + GOOD_PRODUCER + FILES,
     "-P4 -Y /r0/t -E28 -D",
     NOTHING_WAS_TESTED,
     {"not judged sp2 loop", "not judged dram user", "the report has no line for it"}},
    {"a line that should be there is missing",
     "\n" + GOOD_PRODUCER,
     "-P4 -D",
     SOMETHING_IS_WRONG,
     {"MISSING    dram user", "the report has no such line"}},
    {"what was expected and never worked",
     "\n     pid   -7 dram   , alloc 00000000, test 00000000, errors 0000         0 \n",
     "-D",
     NOTHING_WAS_TESTED,
     {"idle       dram user", "NOTHING TESTED"}},
    {"the samples of field I/O, in words",
     "\n" + FIO,
     nullptr,
     SOMETHING_IS_WRONG,
     {"FAIL       FIOloop sp5s",
      "sample: step 24, byte read 0x09: on module 1 or 221 output 3.1, input 3.1 reads 1, input "
      "3.4 too\n",
      "sample: step 26, byte read 0x00: on module 1 or 221 output 3.3, input 3.3 reads 0\n"}},
    {"a sample that fits no module",
     "\n" + NO_INPUT,
     nullptr,
     SOMETHING_IS_WRONG,
     {"reads 0; on module 2 or 219 output"}},
    {"a sample of an output that has two inputs",
     "\n" + TWO_INPUTS,
     nullptr,
     SOMETHING_IS_WRONG,
     {"byte read 0x40: on module 2 or 219 output 1.7, input 1.7 and 9.7 reads 1\n"}},
    {"a device that could not be opened",
     "\n" + UNOPENED_SPI,
     nullptr,
     SOMETHING_IS_WRONG,
     {"its device could not be opened"}},
    {"a report without its end is cut",
     "\n" + GOOD_PRODUCER + FILES.substr(0, FILES.size() - 1),
     "-P4 -Y /r0/t",
     SOMETHING_IS_WRONG,
     {"CUT", "its status report is not complete"}},
    {"so is one with a line that cannot be read",
     "\n" + GOOD_PRODUCER + "sp3, pid   -7 produce, wrote 000022",
     nullptr,
     SOMETHING_IS_WRONG,
     {"CUT", "lines that could not be read: 1"}},
    {"also if that line has its end",
     "\n" + GOOD_PRODUCER + "sp3, pid   -7 produce, wrote 000022\n" + FILES,
     nullptr,
     SOMETHING_IS_WRONG,
     {"CUT", "its status report is not complete"}},
    {"the messages of the start are no lines of it, and a terminal adds a character",
     "proc 1 bogus 0\nnumproc 1 indx 1\n\r\n" + GOOD_PRODUCER + "\r\n",
     "-P4",
     EVERYTHING_PASSES,
     {}},
    {"two reports are two runs",
     "\n" + producer_line("0001") + "\n" + GOOD_PRODUCER,
     "-P4",
     SOMETHING_IS_WRONG,
     {"run 1: FAIL", "run 2: pass"}},
    {"beside a log it adds nothing",
     good_run() + "\n" + GOOD_PRODUCER,
     nullptr,
     EVERYTHING_PASSES,
     {"1 run, 1 board"}},
    {"a report of crossovers alone has no line", "\n", "-E28", NOTHING_WAS_TESTED, {}},
};

TEST(Report, is_judged_as_far_as_its_lines_show) {
    for (const report_case &each : REPORT_CASES) {
        SCOPED_TRACE(each.claim);
        judge_rules rules;
        if (each.options != nullptr)
            rules.expected = expect(each.options);
        const outcome seen = judge_text(each.text, rules);
        EXPECT_EQ(seen.status, each.status) << seen.report;
        for (const char *part : each.said)
            EXPECT_TRUE(seen.says(part)) << part << "\n" << seen.report;
    }
}

TEST(Report, has_no_plots) {
    EXPECT_EQ(forms_of("\n" + GOOD_PRODUCER).page.find("class=\"plots\""), std::string::npos);
}

} // namespace
