#include "results/reading/rows/row_reader.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "results/reading/rows/compiled_row.h"
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

// The rows once more for lines whose samples are all 0, as most are: these end at the samples.
constexpr std::string_view NO_SAMPLES = " hist 0,0 0,0 0,0 0,0 0,0";

compiled_row compile_without_samples(const line_row &row) {
    compiled_row compiled = compile(row);
    const auto is_sample = [](const line_item &item) { return item.word >= FIRST_RING_WORD; };
    const auto first = std::ranges::find_if(compiled.items, is_sample);
    const std::string_view after = first != compiled.items.end() ? first->text : compiled.tail;
    compiled.tail = after.substr(0, after.find(" hist"));
    compiled.items.erase(first, compiled.items.end());
    return compiled;
}

struct letter_rows {
    compiled_row whole;
    compiled_row without_samples;
};

// By letter; empty for a letter without a line.
const std::array<letter_rows, 128> &rows_by_letter() {
    static const std::array ROWS = [] {
        std::array<letter_rows, 128> rows;
        for (const line_row &row : RESULTS_ROWS)
            if (row.format[0] != '\0')
                rows[static_cast<size_t>(row.letter)] = {compile(row),
                                                         compile_without_samples(row)};
        return rows;
    }();
    return ROWS;
}

bool read_guessed(std::string_view line, int32_t letter, TestRecord &record) {
    const letter_rows &rows = rows_by_letter()[static_cast<size_t>(letter) & 127U];
    if (rows.whole.items.empty())
        return false;
    if (!line.ends_with(NO_SAMPLES))
        return read_row(rows.whole, line, record);
    line.remove_suffix(NO_SAMPLES.size());
    return read_row(rows.without_samples, line, record);
}

} // namespace

bool read_results_line(std::string_view line, TestRecord &record, int32_t guess) {
    static const std::vector<compiled_row> ROWS = compile(RESULTS_ROWS);
    int64_t no_rate = 0;
    return read_guessed(without_end(line), guess, record) || read_line(ROWS, line, record, no_rate);
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

bool read_clean_line(std::string_view line, const line_start &start, const line_layout &layout,
                     const TestRecord &before, TestRecord &record) {
    constexpr std::string_view CLEAN = " errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0";
    if (start.size == 0 || line.size() < start.size + CLEAN.size() || !line.ends_with(CLEAN) ||
        memcmp(line.data(), start.text.data(), start.size) != 0)
        return false;
    const char *at = line.data() + start.size;
    const char *end = line.data() + line.size() - CLEAN.size();
    std::array<uint32_t, 2> counts = {};
    at = read_decimal(at, end, counts[0]);
    if (at == nullptr || !takes_text(at, end, layout.between) ||
        read_decimal(at, end, counts[1]) != end ||
        (layout.counts[0] == layout.counts[1] && counts[0] != counts[1]))
        return false;
    record = before;
    for (size_t i = 0; i < counts.size(); ++i)
        memcpy(reinterpret_cast<char *>(&record) + layout.counts[i] * sizeof counts[i], &counts[i],
               sizeof counts[i]);
    return true;
}
