#include "results/reading/row_reader.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "supervisor/lists/line_format.h"
#include "supervisor/lists/report_rows.h"
#include "supervisor/lists/results_rows.h"

namespace {

constexpr size_t WORDS = sizeof(TestRecord) / sizeof(int32_t);
constexpr uint8_t FIRST_RING_WORD = offsetof(TestRecord, hist) / sizeof(int32_t);

// One item of a line and the text before it.
struct line_item {
    std::string_view text;
    char letter = 0; // of the conversion
    field_form form = field_form::NUMBER;
    uint8_t word = NO_WORD;
    bool repeats = false; // an item before it has the same word
};

struct compiled_row {
    record_letter letter;
    std::vector<line_item> items;
    std::string_view tail; // the text after the last item
};

// The word of a sample: with `hist_next` 0 the newest one is in the last slot.
uint8_t sample_word(size_t number) {
    const size_t slot = RING_SLOTS - 1 - number / 2;
    return static_cast<uint8_t>(FIRST_RING_WORD + 2 * slot + number % 2);
}

line_item item_of(const line_row &row, size_t number) {
    line_item item;
    item.form = row.form_of(number);
    item.word =
        number < row.field_count ? row.fields[number].word : sample_word(number - row.field_count);
    for (size_t before = 0; before < std::min(number, row.field_count); ++before)
        item.repeats = item.repeats || row.fields[before].word == item.word;
    return item;
}

std::string_view without_breaks(std::string_view text) {
    while (text.starts_with('\n'))
        text.remove_prefix(1);
    while (text.ends_with('\n') || text.ends_with(' '))
        text.remove_suffix(1);
    return text;
}

compiled_row compile(const line_row &row) {
    compiled_row compiled = {row.letter, {}, {}};
    const char *from = row.format;
    for (const char *at = find_conversion(from); *at != '\0'; at = find_conversion(from)) {
        line_item item = item_of(row, compiled.items.size());
        item.text = {from, static_cast<size_t>(at - from)};
        if (compiled.items.empty())
            item.text = without_breaks(item.text);
        item.letter = conversion_at(at).letter();
        compiled.items.push_back(item);
        from = at + conversion_at(at).length;
    }
    compiled.tail = without_breaks(from);
    return compiled;
}

template <size_t rows>
std::vector<compiled_row> compile(const line_row (&table)[rows]) {
    std::vector<compiled_row> compiled;
    for (const line_row &row : table)
        if (row.format[0] != '\0')
            compiled.push_back(compile(row));
    return compiled;
}

using record_words = std::array<uint32_t, WORDS>;

// Reads digits with a sign. Most of the time goes here: std::from_chars takes twice as long.
const char *read_decimal(const char *at, const char *end, uint32_t &value) {
    constexpr ptrdiff_t DIGITS_MAX = 10;
    const bool is_negative = at < end && *at == '-';
    const char *first = at + (is_negative ? 1 : 0);
    int64_t number = 0;
    for (at = first; at < end && *at >= '0' && *at <= '9' && at - first <= DIGITS_MAX; ++at)
        number = number * 10 + (*at - '0');
    number = is_negative ? -number : number;
    value = static_cast<uint32_t>(number);
    const bool is_word = number >= INT32_MIN && number <= INT32_MAX;
    return at != first && at - first <= DIGITS_MAX && is_word ? at : nullptr;
}

// Reads a number of up to 32 bits as the conversions %d and %x print it, after the blanks of a
// width. Returns the first character after it, null if there is none or if it is too large.
const char *read_number(const char *at, const char *end, char letter, uint32_t &value) {
    while (at < end && *at == ' ')
        ++at;
    if (letter != 'x')
        return read_decimal(at, end, value);
    const auto [after, fault] = std::from_chars(at, end, value, 16);
    return fault == std::errc{} ? after : nullptr;
}

// A rate: read and forgotten.
const char *skip_rate(const char *at, const char *end) {
    while (at < end && *at == ' ')
        ++at;
    int64_t rate = 0;
    const auto [after, fault] = std::from_chars(at, end, rate);
    return fault == std::errc{} ? after : nullptr;
}

const char *read_name(const char *at, const char *end, const char *first, const char *other,
                      uint32_t &unit) {
    const std::string_view text(at, static_cast<size_t>(end - at));
    unit = text.starts_with(first) ? 1 : 2;
    const std::string_view name = unit == 1 ? first : other;
    return text.starts_with(name) ? at + name.size() : nullptr;
}

const char *read_value(const char *at, const char *end, const line_item &item, uint32_t &value) {
    switch (item.form) {
    case field_form::LIST_NAME:
        return read_name(at, end, "Datakey", "eeprom", value);
    case field_form::REPORT_NAME:
        return read_name(at, end, "key", "rom", value);
    case field_form::BIT_RATE:
    case field_form::READ_RATE:
    case field_form::WHOLE_SECONDS:
        return skip_rate(at, end);
    case field_form::NUMBER:
        break;
    }
    if (item.letter != 'c')
        return read_number(at, end, item.letter, value);
    value = at < end ? static_cast<uint8_t>(*at) : 0;
    return at < end ? at + 1 : nullptr;
}

// Texts have one byte, a comma, or some ten: one comparison, or two of eight that overlap, are
// faster than memcmp(3).
bool is_equal(const char *one, const char *other, size_t size) {
    uint64_t words[4] = {};
    if (size == 1)
        return *one == *other;
    if (size < sizeof words[0] || size > 2 * sizeof words[0])
        return memcmp(one, other, size) == 0;
    memcpy(&words[0], one, sizeof words[0]);
    memcpy(&words[1], other, sizeof words[0]);
    memcpy(&words[2], one + size - sizeof words[0], sizeof words[0]);
    memcpy(&words[3], other + size - sizeof words[0], sizeof words[0]);
    return words[0] == words[1] && words[2] == words[3];
}

bool takes_text(const char *&at, const char *end, std::string_view text) {
    if (static_cast<size_t>(end - at) < text.size() || !is_equal(at, text.data(), text.size()))
        return false;
    at += text.size();
    return true;
}

bool is_rate(const line_item &item) {
    return item.form >= field_form::BIT_RATE;
}

// A word that is printed twice has one value.
bool read_items(const compiled_row &row, const char *at, const char *end, record_words &words) {
    for (const line_item &item : row.items) {
        if (!takes_text(at, end, item.text))
            return false;
        if (at == end && item.letter == 'c')
            return true; // the device could not be opened: its name, a NUL byte, ended the text
        uint32_t value = 0;
        at = read_value(at, end, item, value);
        if (at == nullptr || (item.repeats && !is_rate(item) && words[item.word] != value))
            return false;
        if (!is_rate(item))
            words[item.word] = value;
    }
    return takes_text(at, end, row.tail) && at == end;
}

std::string_view without_end(std::string_view line) {
    while (line.ends_with(' ') || line.ends_with('\r') || line.ends_with('\n'))
        line.remove_suffix(1);
    if (line.ends_with("#012")) // how rsyslog writes the line break of the message
        line.remove_suffix(4);
    return line;
}

bool read_row(const compiled_row &row, std::string_view line, TestRecord &record) {
    record_words words = {};
    if (!read_items(row, line.data(), line.data() + line.size(), words))
        return false;
    record = std::bit_cast<TestRecord>(words);
    record.test_letter = static_cast<int32_t>(row.letter);
    return true;
}

bool read_line(std::span<const compiled_row> rows, std::string_view line, TestRecord &record) {
    line = without_end(line);
    return std::ranges::any_of(
        rows, [&](const compiled_row &row) { return read_row(row, line, record); });
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

constexpr uint8_t word_at(size_t offset) {
    return static_cast<uint8_t>(offset / sizeof(int32_t));
}

bool is_error_word(uint8_t word) {
    return word >= word_at(offsetof(TestRecord, errors)) &&
           word <= word_at(offsetof(TestRecord, errors3));
}

bool is_count_word(uint8_t word) {
    return word == word_at(offsetof(TestRecord, read_count)) ||
           word == word_at(offsetof(TestRecord, write_count)) ||
           word == word_at(offsetof(TestRecord, prev_read_count));
}

line_layout layout_of(const line_row &row) {
    line_layout layout;
    layout.letter = row.letter;
    size_t counts = 0;
    for (const line_item &item : compile(row).items) {
        if (is_count_word(item.word) && counts < 2) {
            std::string_view name = item.text.substr(0, item.text.size() - 1);
            layout.between = item.text;
            layout.count_names[counts] = name.substr(name.rfind(' ') + 1);
            layout.counts[counts++] = item.word;
        }
        if (is_error_word(item.word))
            layout.errors[layout.error_count++] = item.word;
    }
    layout.has_samples = row.samples > 0;
    return layout;
}

} // namespace

bool read_results_line(std::string_view line, TestRecord &record, int32_t guess) {
    static const std::vector<compiled_row> ROWS = compile(RESULTS_ROWS);
    return read_guessed(without_end(line), guess, record) || read_line(ROWS, line, record);
}

bool read_report_line(std::string_view line, TestRecord &record) {
    static const std::vector<compiled_row> ROWS = compile(REPORT_ROWS);
    return read_line(ROWS, line, record);
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

const line_layout &layout_of(int32_t letter) {
    static const std::array LAYOUTS = [] {
        std::array<line_layout, 128> layouts;
        for (const line_row &row : RESULTS_ROWS)
            if (row.letter == record_letter::RECEIVER)
                layouts.fill(layout_of(row));
        for (const line_row &row : RESULTS_ROWS)
            if (row.format[0] != '\0')
                layouts[static_cast<size_t>(row.letter)] = layout_of(row);
        return layouts;
    }();
    return LAYOUTS[static_cast<size_t>(letter) & 127U];
}
