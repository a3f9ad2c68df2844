// Each form of a report in full: every word of it is somebody's input.

#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/log_text.h"

namespace {

// One board with an error, a stall and a test that is held; the other has a name from the network.
std::string log_of_two_boards() {
    const auto bench = [](int second, const char *errors, int64_t blocks) {
        return list(second,
                    {item("0 sp2 loop wrote " + std::to_string(70 * second) + " read 9", errors,
                          second > 10 ? "100,69" : "0,0"),
                     item("5 sp8 loop wrote " + std::to_string(70 * second) + " read 8"),
                     producer(blocks), item("8 dram user alloc 0 test 0")},
                    "rack7 bench");
    };
    const std::string other = "<&>\"' =oven";
    return bench(10, "0,0,0", 500) + at(15, "Couldn't open SP8", "rack7 bench") +
           bench(20, "1,0,2", 900) + bench(30, "1,0,5", 900) + list(10, {receiver(5, 5)}, other) +
           list(20, {receiver(9, 9)}, other);
}

judge_rules rules_of_two_boards() {
    judge_rules rules;
    rules.allowed.push_back(read_allowance("loop:1<=3"));
    return rules;
}

// The expected texts are files: a form has many lines.
void expect_form(const char *name, const std::string &seen) {
    std::ostringstream expected;
    expected << std::ifstream(std::string(HK_FORMS_PATH) + "/" + name).rdbuf();
    EXPECT_EQ(seen, expected.str()) << name;
}

TEST(FormsInFull, have_every_fact_of_a_log_in_its_place) {
    const std::string log = log_of_two_boards();
    const judge_rules rules = rules_of_two_boards();
    expect_form("table.txt", judge_text(log, rules).report);
    expect_form("junit.xml", judge_text(log, rules, junit_report).report);
    expect_form("tap.txt", judge_text(log, rules, tap_report).report);
    expect_form("report.json", judge_text(log, rules, json_report).report);
}

TEST(FormsInFull, rows_and_page_have_every_list) {
    auto [rows, page] = forms_of(log_of_two_boards(), rules_of_two_boards());
    std::erase(rows, '\r');
    expect_form("rows.csv", rows);
    EXPECT_NE(page.find(".dygraph-legend{"), std::string::npos); // the style of the plots
    EXPECT_EQ(page.find("sourceMappingURL"), std::string::npos); // a page loads nothing
    const size_t begin = page.find("<body>");
    expect_form("page.html", page.substr(begin, page.find("<p class=\"hint\">") - begin));
}

} // namespace
