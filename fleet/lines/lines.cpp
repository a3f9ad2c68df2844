// Results lists of many boards, made with the program's own line table: what benchmarks and tests
// send through the chain in place of as many boards.
//
//   fleet_lines table                            a line for each kind of record, and its counters
//   fleet_lines file BOARDS LISTS                the collector's file, to standard output
//   fleet_lines send ADDRESS PORT BOARDS PERIOD SECONDS [ERROR]
//                     a RELP connection for each board; every PERIOD seconds a list; with PERIOD 0
//                     one after another. SECONDS count from "connected". Board 1 has an error ERROR
//                     seconds after the start.
//
// A board has five records: a crossover of two ports, a loopback, a receiver and a producer.

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "fleet/lines/board_lines.h"
#include "fleet/lines/sender.h"
#include "supervisor/lists/results_rows.h"

namespace {

// Each kind of line, and after a tab its error counters, each with a value of its own.
void print_table() {
    for (const line_row &row : RESULTS_ROWS) {
        TestRecord record = record_of(row.letter, '1', 7);
        record.errors = 55;
        record.errors2 = 66;
        record.errors3 = 77;
        const std::string line = line_of(record);
        if (line.empty())
            continue;
        printf("%s\t", line.c_str());
        for (size_t i = 0; i < row.field_count; ++i) {
            const std::string_view name = row.fields[i].name;
            const int value = name == "errors" ? 55 : name == "errors2" ? 66 : 77;
            if (name.starts_with("errors"))
                printf("%s=%d ", row.fields[i].name, value);
        }
        printf("\n");
    }
}

// Lists of all boards in turn, 120 s of the boards' clocks apart.
void print_file(int32_t boards, int32_t lists) {
    auto when = std::chrono::system_clock::now() - std::chrono::seconds(120) * lists;
    for (int32_t list = 1; list <= lists; ++list, when += std::chrono::seconds(120)) {
        const std::vector<std::string> lines = list_of(list, 0);
        for (int32_t board = 1; board <= boards; ++board)
            for (size_t i = 0; i < lines.size(); ++i) {
                const auto moment = when + std::chrono::microseconds(i);
                const std::string text = head_of(board, moment) + lines[i] + "\n";
                (void)fwrite(text.data(), 1, text.size(), stdout);
            }
    }
}

int usage() {
    fputs("usage: fleet_lines table | file BOARDS LISTS | send ADDRESS PORT BOARDS PERIOD SECONDS "
          "[ERROR]\n",
          stderr);
    return 2;
}

int read_and_send_load(std::span<char *const> arguments) {
    load work = {};
    work.address.sin_family = AF_INET;
    work.address.sin_port = htons(static_cast<uint16_t>(atoi(arguments[1])));
    if (inet_pton(AF_INET, arguments[0], &work.address.sin_addr) != 1)
        return usage();
    work.boards = atoi(arguments[2]);
    work.period_s = atof(arguments[3]);
    work.seconds = atof(arguments[4]);
    work.error_at_s = arguments.size() > 5 ? atof(arguments[5]) : 0;
    if (work.boards < 1)
        return usage();
    send_load(work);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    const std::span<char *const> arguments(argv + 1, static_cast<size_t>(argc - 1));
    const std::string_view command = arguments.empty() ? "" : arguments[0];
    if (command == "table" && arguments.size() == 1) {
        print_table();
        return 0;
    }
    if (command == "file" && arguments.size() == 3) {
        print_file(atoi(arguments[1]), atoi(arguments[2]));
        return 0;
    }
    if (command == "send" && (arguments.size() == 6 || arguments.size() == 7))
        return read_and_send_load(arguments.subspan(1));
    return usage();
}
