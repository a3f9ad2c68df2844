#include "results/reading/rows/row_reader.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "results/reading/rows/compiled_row.h"
#include "results/reading/rows/line_parts.h"
#include "supervisor/lists/line_format.h"
#include "supervisor/lists/report_rows.h"
#include "supervisor/lists/results_rows.h"

namespace {

template <size_t rows>
std::vector<compiled_row> compile(const line_row (&table)[rows]) {
    std::vector<compiled_row> compiled;
    for (const line_row &row : table)
        if (row.format[0] != '\0')
            compiled.push_back(compile(row));
    return compiled;
}

std::string_view without_end(std::string_view line) {
    while (line.ends_with(' ') || line.ends_with('\r') || line.ends_with('\n'))
        line.remove_suffix(1);
    if (line.ends_with("#012")) // how rsyslog writes the line break of the message
        line.remove_suffix(4);
    return line;
}

bool read_line(std::span<const compiled_row> rows, std::string_view line, TestRecord &record,
               int64_t &bit_rate) {
    line = without_end(line);
    return std::ranges::any_of(
        rows, [&](const compiled_row &row) { return read_row(row, line, record, bit_rate); });
}

// What follows the counts is alike in every line: three error counters and five samples.
constexpr size_t ERROR_NUMBERS = 3;
constexpr size_t TAIL_NUMBERS = ERROR_NUMBERS + 10;
using tail_numbers = std::array<uint32_t, TAIL_NUMBERS>;

bool takes_number(const char *&at, const char *end, uint32_t &value) {
    at = read_decimal(at, end, value);
    return at != nullptr;
}

bool takes(const char *&at, const char *end, char letter) {
    return at < end && *at++ == letter;
}

bool read_tail(const char *at, const char *end, tail_numbers &numbers) {
    uint32_t *number = numbers.data();
    if (!takes_text(at, end, " errors ") || !takes_number(at, end, number[0]) ||
        !takes(at, end, ',') || !takes_number(at, end, number[1]) || !takes(at, end, ',') ||
        !takes_number(at, end, number[2]) || !takes_text(at, end, " hist"))
        return false;
    for (number += ERROR_NUMBERS; number < numbers.data() + TAIL_NUMBERS; number += 2)
        if (!takes(at, end, ' ') || !takes_number(at, end, number[0]) || !takes(at, end, ',') ||
            !takes_number(at, end, number[1]))
            return false;
    return at == end;
}

void set_word(TestRecord &record, size_t word, uint32_t value) {
    memcpy(reinterpret_cast<char *>(&record) + word * sizeof value, &value, sizeof value);
}

// Returns false if a number is not 0 where the line has a fixed 0.
bool set_tail(TestRecord &record, const line_layout &layout, const tail_numbers &numbers) {
    uint32_t fixed = 0;
    for (size_t i = 0; i < ERROR_NUMBERS; ++i)
        if (i < layout.error_count)
            set_word(record, layout.errors[i], numbers[i]);
        else
            fixed |= numbers[i];
    for (size_t i = ERROR_NUMBERS; i < TAIL_NUMBERS; ++i)
        if (layout.samples > 0)
            set_word(record, sample_word(i - ERROR_NUMBERS), numbers[i]);
        else
            fixed |= numbers[i];
    return fixed == 0;
}

} // namespace

bool read_results_line(std::string_view line, TestRecord &record) {
    static const std::vector<compiled_row> ROWS = compile(RESULTS_ROWS);
    int64_t no_rate = 0;
    return read_line(ROWS, line, record, no_rate);
}

bool read_report_line(std::string_view line, TestRecord &record, int64_t &bit_rate) {
    static const std::vector<compiled_row> ROWS = compile(REPORT_ROWS);
    bit_rate = 0;
    return read_line(ROWS, line, record, bit_rate);
}

line_start::line_start(const TestRecord &record) {
    const line_layout &layout = layout_of(record.test_letter);
    char line[longest_line(RESULTS_ROWS)];
    std::string_view whole(line, static_cast<size_t>(format_line(RESULTS_ROWS, record, line)));
    std::string name = " ";
    name.append(layout.count_names[0]).append(" ");
    const size_t end = whole.find(name);
    if (end == std::string_view::npos || end + name.size() > text.size())
        return;
    size = static_cast<uint8_t>(end + name.size());
    std::copy_n(line, size, text.begin());
}

bool read_next_line(std::string_view line, const line_start &start, const line_layout &layout,
                    const TestRecord &before, TestRecord &record) {
    constexpr std::string_view CLEAN = " errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0";
    if (start.size == 0 || line.size() < start.size + CLEAN.size() ||
        memcmp(line.data(), start.text.data(), start.size) != 0)
        return false;
    const char *at = line.data() + start.size;
    const char *end = line.data() + line.size();
    std::array<uint32_t, 2> counts = {};
    tail_numbers tail = {};
    at = read_decimal(at, end, counts[0]);
    if (at == nullptr || !takes_text(at, end, layout.between))
        return false;
    at = read_decimal(at, end, counts[1]);
    if (at == nullptr || (layout.counts[0] == layout.counts[1] && counts[0] != counts[1]))
        return false;
    if (std::string_view(at, end) != CLEAN && !read_tail(at, end, tail))
        return false;
    record = before;
    for (size_t i = 0; i < counts.size(); ++i)
        set_word(record, layout.counts[i], counts[i]);
    return set_tail(record, layout, tail);
}
