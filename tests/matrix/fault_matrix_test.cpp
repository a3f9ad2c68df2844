// Every fault that can be put into the simulated board against every test that meets it: the
// counter that must move, those that must not, the sample, the log line. With --print the same
// table goes out as text and nothing is run.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <set>

#include "tests/matrix/fault_cells.h"
#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

constexpr int ENDED_BY_THE_BOARD = 124;

constexpr char TESTS[] = {'C', 'P', 'E', 'F', 'L', 'S', 'Y', 'M', 'D'};

#if defined(HK_SANITIZED)
constexpr bool LIMITS_ARE_THE_PROGRAMS = false;
#else
constexpr bool LIMITS_ARE_THE_PROGRAMS = sizeof(HK_EMULATOR) == 1;
#endif

bool is_reached(const bounds &claim, int64_t count) {
    return count >= claim.least;
}

bool has_name(const result_line &item, const line_claim &claim) {
    return std::to_string(item.kind) + " " + item.name == claim.name;
}

bool are_reached(const fault_cell &cell, const std::vector<result_line> &items) {
    if (items.size() != cell.lines.size())
        return false;
    for (size_t i = 0; i < items.size(); ++i) {
        // A record gets its unit, and with it its name, once its test is at work.
        bool reached = has_name(items[i], cell.lines[i]) &&
                       is_reached(cell.lines[i].first_count, items[i].counts[0]) &&
                       is_reached(cell.lines[i].good, items[i].counts[1]);
        for (size_t k = 0; k < items[i].errors.size(); ++k)
            reached = reached && is_reached(cell.lines[i].errors[k], items[i].errors[k]);
        if (!reached)
            return false;
    }
    return true;
}

void expect_line(const line_claim &claim, const result_line &item) {
    SCOPED_TRACE(claim.name);
    EXPECT_EQ(std::to_string(item.kind) + " " + item.name, claim.name);
    EXPECT_GE(item.counts[0], claim.first_count.least);
    EXPECT_LE(item.counts[0], claim.first_count.most);
    EXPECT_GE(item.counts[1], claim.good.least);
    EXPECT_LE(item.counts[1], claim.good.most);
    for (size_t k = 0; k < item.errors.size(); ++k) {
        EXPECT_GE(item.errors[k], claim.errors[k].least) << "error " << k + 1;
        EXPECT_LE(item.errors[k], claim.errors[k].most) << "error " << k + 1;
    }
    const auto shown = std::min(item.samples.size(), static_cast<size_t>(claim.errors[0].least));
    for (size_t k = 0; k < shown && claim.is_sample != nullptr; ++k)
        EXPECT_TRUE(claim.is_sample(item.samples[k]))
            << "sample " << item.samples[k][0] << "," << item.samples[k][1];
}

std::vector<std::string> command_of(const fault_cell &cell) {
    std::vector<std::string> arguments = {"-d1"};
    arguments.insert(arguments.end(), cell.arguments.begin(), cell.arguments.end());
    std::vector<std::string> command = own_program(HK_STRESS_PATH, arguments);
    if (cell.end == ending::held) {
        command.insert(command.begin(), "is 1 27 2");
        command = own_program(TABLE_PROBE_PATH, command);
    }
    if (cell.prepared_by != nullptr)
        command.insert(command.begin(),
                       {"/bin/sh", "-c", std::string(cell.prepared_by) + "; exec \"$0\" \"$@\""});
    return command;
}

std::vector<result_line> run_cell(const fault_cell &cell, board_run &run) {
    for (const char *text : cell.log)
        if (!run.wait_for_log(text))
            ADD_FAILURE() << "not logged: " << text;
    if (cell.end == ending::stopped || cell.end == ending::never)
        return lists_until(run, [&](const auto &items) { return are_reached(cell, items); });
    EXPECT_EQ(run.finish(), 0);
    return last_list(run);
}

void expect_end(const fault_cell &cell, board_run &run) {
    if (cell.end == ending::by_itself || cell.end == ending::held)
        return;
    if (cell.end == ending::never) {
        run.signal(SIGINT); // SIGTERM to the program, then the board's own limit
        EXPECT_EQ(run.finish(), ENDED_BY_THE_BOARD);
        return;
    }
    EXPECT_EQ(run.stop(), 0);
}

class FaultMatrix : public testing::TestWithParam<size_t> {};

TEST_P(FaultMatrix, moves_its_counters_and_no_others) {
    const fault_cell &cell = fault_cells()[GetParam()];
    if (cell.needs_spi && sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    if (cell.needs_limits && !LIMITS_ARE_THE_PROGRAMS)
        GTEST_SKIP()
            << "a limit on memory would be the emulator's, or leave no room to the sanitizer";
    SCOPED_TRACE(cell.fault);
    board_run run = board_run::program(cell.board, command_of(cell));
    const std::vector<result_line> items = run_cell(cell, run);
    if (cell.report != nullptr) {
        EXPECT_NE(run.output.find(cell.report), std::string::npos) << run.output;
        return;
    }
    ASSERT_EQ(items.size(), cell.lines.size());
    for (size_t i = 0; i < items.size(); ++i)
        expect_line(cell.lines[i], items[i]);
    EXPECT_TRUE(cell.also == nullptr || cell.also(items));
    expect_end(cell, run);
}

// "input stuck in byte 0" for -F becomes "input_stuck_in_byte_0_F_41".
std::string name_of(const testing::TestParamInfo<size_t> &tested) {
    const fault_cell &cell = fault_cells()[tested.param];
    std::string name = cell.fault;
    std::erase_if(name, [](char letter) { return letter == ',' || letter == ':'; });
    std::ranges::replace(name, ' ', '_');
    return name + "_" + cell.lines[0].test + "_" + std::to_string(tested.param);
}

INSTANTIATE_TEST_SUITE_P(Every, FaultMatrix, testing::Range(size_t{0}, fault_cells().size()),
                         name_of);

// What one line shows of the fault: the error numbers that move, s for a sample.
std::string moved_by(const line_claim &claim) {
    std::string text;
    for (size_t k = 0; k < claim.errors.size(); ++k)
        if (claim.errors[k].least > 0)
            text += static_cast<char>('1' + k);
    if (claim.is_sample != nullptr)
        text += 's';
    return text.empty() ? "-" : text;
}

// One entry of the matrix; empty when the fault does not meet the test.
std::string entry(const fault_cell &cell, char test) {
    std::string text;
    bool seen = !cell.log.empty();
    for (const line_claim &claim : cell.lines) {
        if (claim.test != test)
            continue;
        if (!text.empty())
            text += '/';
        text += moved_by(claim);
        seen = seen || moved_by(claim) != "-";
    }
    if (text.empty())
        return text;
    const bool is_clean = strcmp(cell.fault, "none") == 0;
    if (!seen)
        text = is_clean ? "ok" : "unseen";
    if (!cell.log.empty())
        text += " log";
    return text;
}

void print_matrix() {
    printf("| Fault |");
    for (const char test : TESTS)
        printf(" -%c |", test);
    printf("\n|---|");
    for (size_t i = 0; i < std::size(TESTS); ++i)
        printf("---|");
    printf("\n");
    std::set<std::string> printed;
    for (const fault_cell &row : fault_cells()) {
        if (!printed.insert(row.fault).second)
            continue;
        printf("| %s |", row.fault);
        for (const char test : TESTS) {
            std::set<std::string> entries;
            for (const fault_cell &cell : fault_cells())
                if (strcmp(cell.fault, row.fault) == 0)
                    entries.insert(entry(cell, test));
            entries.erase("");
            const auto join = [](const std::string &all, const std::string &one) {
                return all.empty() ? one : all + ", " + one;
            };
            printf(" %s |",
                   std::accumulate(entries.begin(), entries.end(), std::string(), join).c_str());
        }
        printf("\n");
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--print") == 0) {
        print_matrix();
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
