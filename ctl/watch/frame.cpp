#include "ctl/watch/frame.h"

#include <algorithm>
#include <ctime>

#include "ctl/text.h"

namespace {

constexpr char REVERSE[] = "\033[7m";
constexpr char RED[] = "\033[1;31m";
constexpr char BOLD[] = "\033[1m";
constexpr char NORMAL[] = "\033[0m";

constexpr size_t NARROW = 40;      // columns that are always shown
constexpr size_t COUNT_WIDTH = 11; // with the blank before each
constexpr size_t ERRORS_WIDTH = 15;
constexpr size_t SPARKLINE_LEAST = 6;
constexpr size_t OTHER_LINES = 4; // besides the records

// The first columns of a text, padded with blanks. Each character takes one column.
std::string fit(const std::string &text, size_t columns) {
    std::string shown;
    for (size_t at = 0; at < text.size() && columns > 0; --columns) {
        const size_t length = std::max<size_t>(utf8_length(text, at), 1);
        shown.append(text, at, length);
        at += length;
    }
    return shown.append(columns, ' ');
}

std::string styled(const char *style, const std::string &text) {
    return style + text + NORMAL;
}

std::string errors_text(const TestRecord &record) {
    return text_of("%d,%d,%d", record.errors, record.errors2, record.errors3);
}

// The further columns for which there is room.
struct wide_columns {
    bool count;
    bool errors;
    size_t sparkline;
};

wide_columns columns_of(size_t width) {
    wide_columns wide = {};
    size_t left = width > NARROW ? width - NARROW : 0;
    wide.errors = left >= ERRORS_WIDTH;
    left -= wide.errors ? ERRORS_WIDTH : 0;
    wide.count = left >= COUNT_WIDTH;
    left -= wide.count ? COUNT_WIDTH : 0;
    wide.sparkline = left > SPARKLINE_LEAST ? std::min(left - 1, RATES_KEPT) : 0;
    return wide;
}

std::string head_line(size_t width) {
    const wide_columns wide = columns_of(width);
    std::string line = text_of("%3s %-15s %-10s %9s", "", "RECORD", "STATE", "RATE/S");
    if (wide.count)
        line += text_of(" %10s", "COUNT");
    if (wide.errors)
        line += text_of(" %-14s", "ERRORS 1,2,3");
    return styled(BOLD, fit(line, width));
}

std::string record_line(const picture &what, size_t index, size_t width) {
    const wide_columns wide = columns_of(width);
    const TestRecord &record = what.run.table().records[index];
    const record_history &past = what.past.of(index);
    std::string line =
        text_of("%c%2zu %s %-10s %9.1f", has_errors(record) ? '!' : ' ', index,
                fit(list_name(record), 15).c_str(),
                name_of(what.run.state_of(what.run.test_of(index))), past.newest_rate());
    if (wide.count)
        line += text_of(" %10u", work_count(record, what.run.meaning_of(index)));
    if (wide.errors)
        line += text_of(" %-14s", errors_text(record).c_str());
    if (wide.sparkline != 0)
        line.append(1, ' ').append(sparkline(past, wide.sparkline, what.utf8));
    line = fit(line, width);
    if (past.errors_moved)
        line = styled(RED, line);
    return index == what.selected ? styled(REVERSE, line) : line;
}

// The counters of the selected record with their meanings: its errors, or its counts if it has no
// errors.
std::string detail_line(const picture &what) {
    if (what.selected >= what.run.records_used)
        return "";
    const TestRecord &record = what.run.table().records[what.selected];
    const counter_meaning &meaning = what.run.meaning_of(what.selected);
    std::string line = text_of("%zu:", what.selected);
    const bool wrong = has_errors(record);
    for (const named_counter &counter :
         wrong ? errors_of(record, meaning) : counts_of(record, meaning))
        if (!wrong || counter.value != 0)
            line += text_of(" %lld %s;", static_cast<long long>(counter.value), counter.meaning);
    return line;
}

// The first record to show, so that the selected one is on the screen.
size_t first_shown(const picture &what, size_t room) {
    const size_t records = what.run.records_used - 1;
    if (records <= room || what.selected <= room)
        return 1;
    return what.selected - room + 1;
}

} // namespace

std::vector<std::string> draw(const picture &what, screen_size size) {
    std::vector<std::string> lines;
    const size_t width = size.columns;
    const char *state = what.run.has_lost_supervisor() ? name_of_state(what.run) : nullptr;
    lines.push_back(fit(text_of("run @%d%s%s  ", static_cast<int>(what.run.supervisor_id()),
                                state != nullptr ? ", " : "", state != nullptr ? state : "") +
                            printable(joined(what.run.options)),
                        width));
    lines.push_back(head_line(width));
    const size_t room = size.rows > OTHER_LINES ? size.rows - OTHER_LINES : 1;
    const size_t first = first_shown(what, room);
    for (size_t index = first; index < std::min(what.run.records_used, first + room); ++index)
        lines.push_back(record_line(what, index, width));
    lines.push_back(fit(detail_line(what), width));
    const std::string note = what.note.empty() ? "" : what.note + "   "; // seen on a narrow screen
    lines.push_back(fit(note + "up/down select  h hold  r release  q quit", width));
    lines.resize(std::min(lines.size(), size.rows));
    return lines;
}

std::string plain_lines(const stress_run &run, const history &past) {
    const std::string time = time_of_day_text(::time(nullptr));
    std::string lines;
    for (size_t index = 1; index < run.records_used; ++index) {
        const TestRecord &record = run.table().records[index];
        lines += text_of("%s %zu %s: %s", time.c_str(), index, list_name(record).c_str(),
                         name_of(run.state_of(run.test_of(index))));
        for (const named_counter &counter : counts_of(record, run.meaning_of(index)))
            lines += text_of(", %s %lld", counter.meaning, static_cast<long long>(counter.value));
        lines += text_of(", %.1f/s, errors %s%s\n", past.of(index).newest_rate(),
                         errors_text(record).c_str(), past.of(index).errors_moved ? " moved" : "");
    }
    return lines;
}
