// Every fault that can be put into the simulated board against every test that meets it: the
// counter that must move, those that must not, the sample, the log line. With --print the same
// table goes out as text and nothing is run.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <set>

#include "tests/matrix/fault_cells.h"
#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"
#if defined(HK_RESULTS)
#include "tests/support/log_text.h"
#endif

namespace {

constexpr int ENDED_BY_THE_BOARD = 124;

#if defined(HK_SANITIZED)
constexpr bool LIMITS_ARE_THE_PROGRAMS = false;
#else
constexpr bool LIMITS_ARE_THE_PROGRAMS = sizeof(HK_EMULATOR) == 1;
#endif

// What a line claims of its numbers, and the numbers, in the same order.
std::array<bounds, 5> claims_of(const line_claim &line) {
    return {line.first_count, line.good, line.errors[0], line.errors[1], line.errors[2]};
}
std::array<int64_t, 5> numbers_of(const result_line &item) {
    return {item.counts[0], item.counts[1], item.errors[0], item.errors[1], item.errors[2]};
}

std::string name_of(const result_line &item) {
    return std::to_string(item.kind) + " " + item.name;
}

void expect_line(const line_claim &line, const result_line &item) {
    SCOPED_TRACE(line.name);
    EXPECT_EQ(name_of(item), line.name);
    for (size_t i = 0; i < claims_of(line).size(); ++i) {
        EXPECT_GE(numbers_of(item)[i], claims_of(line)[i].least) << "number " << i + 1;
        EXPECT_LE(numbers_of(item)[i], claims_of(line)[i].most) << "number " << i + 1;
    }
    const auto shown = std::min(item.samples.size(), static_cast<size_t>(line.errors[0].least));
    for (size_t k = 0; k < shown && line.is_sample; ++k)
        EXPECT_TRUE(line.is_sample(item.samples[k]))
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

// In the board's own time, so that a busy machine moves nothing.
std::vector<std::string> board_options_of(const fault_cell &cell) {
    std::vector<std::string> options = {"--clock", "virtual"};
    if (cell.end == ending::stopped || cell.end == ending::never)
        options.insert(options.end(), {"--for", std::to_string(cell.seconds)});
    options.insert(options.end(), cell.board.begin(), cell.board.end());
    return options;
}

// Runs a cell to its end and returns the items of the last list, which comes after the stop.
std::vector<result_line> run_cell(const fault_cell &cell, board_run &run) {
    EXPECT_EQ(run.finish(), cell.end == ending::never ? ENDED_BY_THE_BOARD : 0);
    for (const char *text : cell.log)
        if (!run.wait_for_log(text))
            ADD_FAILURE() << "not logged: " << text;
    return last_list(run);
}

bool needs_spi(const fault_cell &cell) {
    return std::ranges::count(cell.board, "--spi") > 0 || cell.arguments[0] == "-L";
}

#if defined(HK_RESULTS)
// The log of the run, as hk_board writes it.
std::string text_of_log(const board_run &run) {
    constexpr int64_t DAY_MS = int64_t{24} * 3600 * 1000;
    std::string text;
    for (const log_line &line : run.log) {
        const auto of_day = static_cast<int>(line.time_ms % DAY_MS);
        char time[40];
        (void)snprintf(time, sizeof time, "2026-11-22 %02d:%02d:%02d.%03d ", of_day / 3600000,
                       of_day / 60000 % 60, of_day / 1000 % 60, of_day % 1000);
        text.append(time).append(line.ident).append(": ").append(line.text).append("\n");
    }
    return text;
}

void expect_named(const fault_cell &cell, const line_claim &line, const record_verdict &record) {
    SCOPED_TRACE(line.name);
    bool has_moved = false;
    bool can_move = !cell.log.empty();
    for (size_t k = 0; k < line.errors.size(); ++k) {
        const auto is_of = [k](const moved_error &error) { return error.number == k; };
        const bool is_named = std::ranges::any_of(record.errors, is_of);
        EXPECT_TRUE(is_named || line.errors[k].least == 0) << "error " << k + 1 << " is not named";
        EXPECT_TRUE(!is_named || line.errors[k].most > 0) << "error " << k + 1 << " is named";
        has_moved = has_moved || line.errors[k].least > 0;
        can_move = can_move || line.errors[k].most > 0;
    }
    const bool is_clean = strcmp(cell.fault, "none") == 0 && !can_move;
    EXPECT_TRUE(!has_moved || record.is == verdict::FAIL) << name_of(record.is);
    EXPECT_TRUE(!is_clean || record.is == verdict::PASS) << name_of(record.is);
}

// hk_results names the counters that the fault moves, and no others.
void expect_verdict(const fault_cell &cell, const board_run &run) {
    log_history history;
    const std::string text = text_of_log(run);
    read_text(history, text);
    const auto has_lists = [](const board_history &board) { return !board.runs.empty(); };
    const auto board = std::ranges::find_if(history.boards, has_lists);
    ASSERT_NE(board, history.boards.end());
    const board_verdict judged = judge(*board, {});
    ASSERT_EQ(judged.runs.size(), 1U) << text;
    ASSERT_EQ(judged.runs[0].records.size(), cell.lines.size());
    for (size_t i = 0; i < cell.lines.size(); ++i)
        expect_named(cell, cell.lines[i], judged.runs[0].records[i]);
}
#else
void expect_verdict(const fault_cell &, const board_run &) {}
#endif

class FaultMatrix : public testing::TestWithParam<size_t> {};

TEST_P(FaultMatrix, moves_its_counters_and_no_others) {
    const fault_cell &cell = fault_cells()[GetParam()];
    if (needs_spi(cell) && sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    if (cell.needs_limits && !LIMITS_ARE_THE_PROGRAMS)
        GTEST_SKIP()
            << "a limit on memory would be the emulator's, or leave no room to the sanitizer";
    SCOPED_TRACE(cell.fault);
    board_run run = board_run::program(board_options_of(cell), command_of(cell));
    const std::vector<result_line> items = run_cell(cell, run);
    if (cell.report != nullptr) {
        EXPECT_NE(run.output.find(cell.report), std::string::npos) << run.output;
        return;
    }
    ASSERT_EQ(items.size(), cell.lines.size());
    for (size_t i = 0; i < items.size(); ++i)
        expect_line(cell.lines[i], items[i]);
    expect_verdict(cell, run);
    EXPECT_TRUE(cell.also == nullptr || cell.also(items));
    const bool is_clean = strcmp(cell.fault, "none") == 0;
    EXPECT_TRUE(!is_clean || run.errors.find('[') == std::string::npos) << "a reply of odd length";
}

// "input stuck in byte 0" for -F becomes "input_stuck_in_byte_0_F_41".
std::string case_name(const testing::TestParamInfo<size_t> &tested) {
    const fault_cell &cell = fault_cells()[tested.param];
    std::string name = cell.fault;
    std::erase_if(name, [](char letter) { return letter == ',' || letter == ':'; });
    std::ranges::replace(name, ' ', '_');
    return name + "_" + cell.lines[0].test + "_" + std::to_string(tested.param);
}

INSTANTIATE_TEST_SUITE_P(Every, FaultMatrix, testing::Range(size_t{0}, fault_cells().size()),
                         case_name);

// What one line shows of the fault: the error numbers that move, s for a sample.
std::string moved_by(const line_claim &claim) {
    std::string text;
    for (size_t k = 0; k < claim.errors.size(); ++k)
        if (claim.errors[k].least > 0)
            text += static_cast<char>('1' + k);
    if (claim.is_sample)
        text += 's';
    return text.empty() ? "-" : text;
}

// What one cell shows of a test that it meets.
std::string entry(const fault_cell &cell, char test) {
    std::string text;
    bool is_seen = !cell.log.empty();
    for (const line_claim &claim : cell.lines)
        if (claim.test == test) {
            text.append(text.empty() ? "" : "/").append(moved_by(claim));
            is_seen = is_seen || moved_by(claim) != "-";
        }
    if (!is_seen)
        return strcmp(cell.fault, "none") == 0 ? "ok" : "unseen";
    return text + (cell.log.empty() ? "" : " log");
}

// The entries of all rows of one fault, each once.
std::string entries(const char *fault, char test) {
    std::set<std::string> shown;
    for (const fault_cell &cell : fault_cells())
        for (const line_claim &claim : cell.lines)
            if (strcmp(cell.fault, fault) == 0 && claim.test == test)
                shown.insert(entry(cell, test));
    std::string text;
    for (const std::string &one : shown)
        text.append(text.empty() ? "" : ", ").append(one);
    return text;
}

// The option of each test that has an entry: the columns.
std::string tested_options() {
    std::string options;
    for (const fault_cell &cell : fault_cells())
        for (const line_claim &claim : cell.lines)
            if (options.find(claim.test) == std::string::npos)
                options += claim.test;
    return options;
}

void print_matrix() {
    const std::string tests = tested_options();
    std::string heading = "| Fault |";
    std::string rule = "|---|";
    for (const char test : tests) {
        heading.append(" -").append(1, test).append(" |");
        rule += "---|";
    }
    printf("%s\n%s\n", heading.c_str(), rule.c_str());
    std::set<std::string> printed;
    for (const fault_cell &row : fault_cells())
        if (printed.insert(row.fault).second) {
            printf("| %s |", row.fault);
            for (const char test : tests)
                printf(" %s |", entries(row.fault, test).c_str());
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
