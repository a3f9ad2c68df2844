// Logs that are cut, mixed or overwritten: none of them passes.

#include <gtest/gtest.h>
#include <map>
#include <random>

#include "tests/support/log_text.h"

namespace {

TEST(Verdict, a_log_cut_at_any_byte_passes_only_between_two_lists) {
    const std::string whole = good_run();
    for (size_t length = 0; length <= whole.size(); ++length) {
        const std::string part = whole.substr(0, length);
        const size_t last = part.rfind("<OL>");
        const bool is_between = part.find("</OL><P>") != std::string::npos &&
                                part.find("</OL><P>", last) != std::string::npos;
        const exit_code status = judge_text(part).status;
        EXPECT_EQ(status == EVERYTHING_PASSES, is_between) << length;
        // Of a log without its start the first line is not whole.
        const bool is_at_line = length == 0 || whole[length - 1] == '\n';
        const size_t line = is_at_line ? length : whole.find('\n', length);
        EXPECT_EQ(judge_text(whole.substr(length)).status == EVERYTHING_PASSES,
                  whole.find("<OL>", line) != std::string::npos)
            << length;
    }
}

// A list of the run each ten seconds, and the two of its end. Blocks count from the start.
std::map<int, std::string> lists_by_ms(int start_ms, int blocks_a_second) {
    std::map<int, std::string> lists;
    for (const int run_ms : {10'000, 20'000, 30'000, 40'000, 50'000, 55'000, 55'001}) {
        const int now_ms = start_ms + run_ms;
        char time[40];
        (void)snprintf(time, sizeof time, "2026-11-22T00:%02d:%02d.%03dZ oven 3: ", now_ms / 60'000,
                       now_ms / 1000 % 60, now_ms % 1000);
        for (const std::string &text :
             {std::string("<OL>"), producer(int64_t{run_ms} / 1000 * blocks_a_second),
              std::string("</OL><P>")})
            lists[now_ms].append(time).append(text).append("\n");
    }
    return lists;
}

TEST(Verdict, two_runs_at_once_under_one_ident_never_pass_however_they_are_shifted) {
    for (const int shift_ms :
         {20, 500, 1000, 2000, 3000, 4000, 5000, 7000, 9000, 9900, 10'002, 20'003, 33'000})
        for (const int other_pace : {99, 100, shift_ms < 2000 ? 98 : 101}) {
            std::map<int, std::string> lists = lists_by_ms(0, 100);
            lists.merge(lists_by_ms(shift_ms, other_pace));
            std::string text;
            for (const auto &[now_ms, list] : lists)
                text += list;
            const outcome seen = judge_text(text);
            EXPECT_EQ(seen.status, SOMETHING_IS_WRONG) << shift_ms << "\n" << seen.report;
        }
    // One after the other, each longer than the one before.
    std::string text;
    for (const int start_ms : {0, 60'000, 130'000})
        for (const auto &[now_ms, list] : lists_by_ms(start_ms, 100 + start_ms / 1000))
            text += list;
    const outcome seen = judge_text(text);
    EXPECT_TRUE(seen.status == EVERYTHING_PASSES && seen.says("3 runs")) << seen.report;
}

// Bytes of a bad log are overwritten by any others: the error stays, or something else is wrong.
TEST(Verdict, a_bad_log_never_passes_whatever_else_happens_to_it) {
    const std::string bad = list(10, {producer(5)}) + list(20, {producer(9, "0,0,7")}) +
                            list(30, {producer(12, "0,0,9")});
    std::mt19937 random(3);
    for (int i = 0; i < 3000; ++i) {
        std::string text = bad;
        const size_t place = random() % text.size();
        const size_t length = std::min<size_t>(random() % 4, text.size() - place);
        for (size_t k = 0; k < length; ++k)
            text[place + k] = static_cast<char>(random());
        const outcome seen = judge_text(text);
        EXPECT_TRUE(seen.status != EVERYTHING_PASSES ||
                    seen.report.find("board ") != seen.report.rfind("board "))
            << text;
    }
}

} // namespace
