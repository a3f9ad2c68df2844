#include "results/reading/rows/compiled_row.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

#include "results/reading/rows/line_parts.h"

namespace {

constexpr size_t WORDS = sizeof(TestRecord) / sizeof(int32_t);

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

using record_words = std::array<uint32_t, WORDS>;

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

const char *read_rate(const char *at, const char *end, int64_t &rate) {
    while (at < end && *at == ' ')
        ++at;
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

const char *read_value(const char *at, const char *end, const line_item &item, uint32_t &value,
                       int64_t &bit_rate) {
    int64_t forgotten = 0;
    switch (item.form) {
    case field_form::LIST_NAME:
        return read_name(at, end, "Datakey", "eeprom", value);
    case field_form::REPORT_NAME:
        return read_name(at, end, "key", "rom", value);
    case field_form::BIT_RATE:
        return read_rate(at, end, bit_rate);
    case field_form::READ_RATE:
    case field_form::WHOLE_SECONDS:
        return read_rate(at, end, forgotten);
    case field_form::NUMBER:
        break;
    }
    if (item.letter != 'c')
        return read_number(at, end, item.letter, value);
    value = at < end ? static_cast<uint8_t>(*at) : 0;
    return at < end ? at + 1 : nullptr;
}

bool is_rate(const line_item &item) {
    return item.form >= field_form::BIT_RATE;
}

// A word that is printed twice has one value. A message in the log ends at the name of a device
// that could not be opened, a NUL byte; the report begins with that name.
bool read_items(const compiled_row &row, const char *at, const char *end, record_words &words,
                int64_t &bit_rate) {
    for (const line_item &item : row.items) {
        if (!takes_text(at, end, item.text))
            return false;
        if (at == end && item.letter == 'c' && &item != row.items.data())
            return true;
        uint32_t value = 0;
        at = read_value(at, end, item, value, bit_rate);
        if (at == nullptr || (item.repeats && !is_rate(item) && words[item.word] != value))
            return false;
        if (!is_rate(item))
            words[item.word] = value;
    }
    return takes_text(at, end, row.tail) && at == end;
}

} // namespace

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

bool read_row(const compiled_row &row, std::string_view line, TestRecord &record,
              int64_t &bit_rate) {
    record_words words = {};
    if (!read_items(row, line.data(), line.data() + line.size(), words, bit_rate))
        return false;
    record = std::bit_cast<TestRecord>(words);
    record.test_letter = static_cast<int32_t>(row.letter);
    return true;
}
