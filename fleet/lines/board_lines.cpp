#include "fleet/lines/board_lines.h"

#include <cstdio>
#include <ctime>

#include "supervisor/lists/results_log.h"

namespace {

constexpr int32_t BOARDS_A_RACK = 100;

constexpr TestRecord BOARD_RECORDS[] = {
    record_of(record_letter::CROSSOVER, 2, 0), record_of(record_letter::CROSSOVER, 8, 5),
    record_of(record_letter::CROSSOVER, 5, 5), record_of(record_letter::RECEIVER, 1, 3),
    record_of(record_letter::PRODUCER, 4, 4),
};

} // namespace

std::string line_of(const TestRecord &record) {
    char line[RESULTS_LINE_MAX];
    const int length = format_results_line(record, line);
    std::string text(line, static_cast<size_t>(length));
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

std::vector<std::string> list_of(int32_t list, int32_t errors) {
    std::vector<std::string> lines = {"<OL>"};
    for (TestRecord record : BOARD_RECORDS) {
        record.read_count = record.write_count = record.prev_read_count =
            static_cast<uint32_t>(9000 * list);
        record.errors3 = record.unit == 8 ? errors : 0;
        lines.push_back(line_of(record));
    }
    lines.emplace_back("</OL><P>");
    return lines;
}

std::string head_of(int32_t board, std::chrono::system_clock::time_point when) {
    const time_t second = std::chrono::system_clock::to_time_t(when);
    const auto micro =
        std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
    tm utc;
    (void)gmtime_r(&second, &utc);
    char date[32];
    (void)strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
    char head[128];
    const int length =
        snprintf(head, sizeof head, "%s.%06d+00:00 rack%d-%02d Stress 02%010x : ", date,
                 static_cast<int>(micro % 1000000), board / BOARDS_A_RACK + 1,
                 board % BOARDS_A_RACK, static_cast<unsigned>(board));
    return {head, static_cast<size_t>(length)};
}
