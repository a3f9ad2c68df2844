// The forms in which machines and browsers read the verdict.

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/log_text.h"

namespace {

using json = nlohmann::json;

// The part of JSON Schema that the document uses.
void expect_valid(const json &value, const json &schema, const json &root,
                  const std::string &where) {
    if (schema.contains("$ref")) {
        const std::string name = schema["$ref"].get<std::string>().substr(strlen("#/$defs/"));
        return expect_valid(value, root["$defs"][name], root, where);
    }
    const std::string type = schema.value("type", "");
    EXPECT_TRUE(type != "object" || value.is_object()) << where;
    EXPECT_TRUE(type != "array" || value.is_array()) << where;
    EXPECT_TRUE(type != "string" || value.is_string()) << where;
    EXPECT_TRUE(type != "integer" || value.is_number_integer()) << where;
    EXPECT_TRUE(type != "number" || value.is_number()) << where;
    EXPECT_TRUE(!schema.contains("enum") ||
                std::ranges::find(schema["enum"], value) != schema["enum"].end())
        << where << ": " << value;
    for (const json &name : schema.value("required", json::array()))
        EXPECT_TRUE(value.contains(name.get<std::string>())) << where << "/" << name;
    const json members = value.is_object() ? value : json::object();
    for (const auto &[name, part] : members.items()) {
        const bool is_known = schema["properties"].contains(name);
        EXPECT_TRUE(is_known || schema.contains("additionalProperties")) << where << "/" << name;
        expect_valid(part, is_known ? schema["properties"][name] : schema["additionalProperties"],
                     root, where + "/" + name);
    }
    for (size_t i = 0; value.is_array() && i < value.size(); ++i)
        expect_valid(value[i], schema["items"], root, where + "/" + std::to_string(i));
}

const char *const HOSTILE = "r <script>alert(1)</script>&\"'=1]]>";

std::string hostile_log() {
    const std::string from = HOSTILE;
    return list(10, {producer(5, "0,0,1")}, from) + list(20, {producer(9, "0,0,2")}, from) +
           good_run("a =cmd|calc") + at(60, "<OL>");
}

TEST(Forms, json_follows_its_schema) {
    const json schema = json::parse(std::ifstream(HK_DOCS_PATH "/hk_results.schema.json"));
    for (const std::string &log : {hostile_log(), good_run(), std::string()}) {
        judge_rules rules = expecting("-C1 -P2 -K -D");
        rules.allowed.push_back(read_allowance("produce:3<=1"));
        const json seen = json::parse(judge_text(log, rules, json_report).report);
        expect_valid(seen, schema, schema, "");
        EXPECT_EQ(seen["schema"], schema["properties"]["schema"]["enum"][0]);
    }
}

size_t count_of(std::string_view part, std::string_view text) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string_view::npos; at += part.size())
        ++count;
    return count;
}

// A script may look at the form alone.
TEST(Forms, junit_and_tap_have_a_failure_where_the_exit_status_is_not_0) {
    const std::string held = item("8 dram user alloc 0 test 0");
    const std::string report = "\nsp4, pid   -7 produce, wrote 00002286, errors 0000\n";
    const struct {
        std::string log;
        judge_rules rules;
        size_t failures;
    } cases[] = {
        {list(10, {producer(5), held}), {}, 0},
        {list(10, {producer(5), held}), expecting("-P2 -D"), 1},
        {list(10, {producer(5, "0,0,1"), held}), expecting("-P2 -D"), 2},
        {list(10, {producer(5)}), expecting("-P2 -K"), 0},
        {list(10, {held}), {}, 1},
        {list(10, {held}) + list(9000, {producer(5)}), {}, 0},
        {list(10, {}), {}, 1},
        {"", {}, 1},
        {good_run("a oven") + list(10, {held}, "b oven"), {}, 1},
        {report, {}, 1},
        {report, expecting("-P4"), 0},
        {report, expecting("-P4 -E28"), 1},
        {good_run() + at(50, "<OL>"), {}, 1},
    };
    for (const auto &each : cases) {
        const outcome junit = judge_text(each.log, each.rules, junit_report);
        const outcome tap = judge_text(each.log, each.rules, tap_report);
        EXPECT_EQ(count_of("<failure", junit.report), each.failures) << junit.report;
        EXPECT_EQ(count_of("not ok", tap.report), each.failures) << tap.report;
        EXPECT_EQ(junit.status == EVERYTHING_PASSES, each.failures == 0) << junit.report;
    }
}

TEST(Forms, names_from_the_network_stay_text) {
    const std::string junit = judge_text(hostile_log(), {}, junit_report).report;
    EXPECT_EQ(junit.find("<script>"), std::string::npos);
    EXPECT_NE(junit.find("failures=\"1\""), std::string::npos) << junit;
    const std::string tap = judge_text(hostile_log(), {}, tap_report).report;
    EXPECT_NE(tap.find("not ok 1 - "), std::string::npos) << tap;
    const auto [rows, page] = forms_of(hostile_log());
    EXPECT_NE(rows.find(",a,'=cmd|calc,1,1,sp1 consume,3,2000,2000,0,0,0,0,0\r\n"),
              std::string::npos)
        << rows;
    EXPECT_EQ(page.find("alert(1)</script>"), std::string::npos);
}

// A plot keeps some of the lists of a long run.
TEST(Forms, a_plot_of_a_long_run_has_the_counters_of_each_list_that_it_keeps) {
    std::string text;
    for (int number = 0; number < 2000; ++number)
        text += list(10 * number, {producer(number), receiver(number, number)});
    log_history history;
    series_keeper series;
    history.observers = {&series};
    read_text(history, text);
    const run_series &points = *series.of(history.boards[0], 0);
    ASSERT_GT(points.times_ms.size(), 700U);
    for (size_t i = 0; i < points.times_ms.size(); ++i)
        for (const auto &record : points.records)
            ASSERT_EQ(static_cast<int64_t>(record.at(i).count) * 10'000,
                      points.times_ms[i] - points.times_ms[0]);
    EXPECT_LT(points.times_ms.size(), 1100U); // from the first thinning on every second list
}

TEST(Forms, the_plots_of_all_records_together_keep_fewer_lists) {
    board_history board;
    record_history record;
    record.layout = &layout_of(static_cast<int32_t>(record_letter::PRODUCER));
    board.runs.emplace_back().records.assign(200'000, record);
    series_keeper series;
    for (int number = 0; number < 10; ++number)
        series.list_taken(board, 0, {});
    EXPECT_LT(series.of(board, 0)->times_ms.size(), 8U); // 1.6 million points
}

} // namespace
