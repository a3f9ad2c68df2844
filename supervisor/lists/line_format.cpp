#include "supervisor/lists/line_format.h"

#include <algorithm>
#include <bit>
#include <cstdio>

#include "supervisor/lists/rates.h"

namespace {

using record_words = std::array<int32_t, sizeof(TestRecord) / sizeof(int32_t)>;

// Returns a word of the samples: newest sample first, position before value.
int32_t sample_word(const TestRecord &record, size_t number) {
    const ErrorSample sample = samples_newest_first(record)[number / 2];
    return number % 2 == 0 ? sample.position : sample.value;
}

const char *list_name(int32_t unit) {
    return unit == 1 ? "Datakey" : "eeprom";
}

const char *report_name(int32_t unit) {
    return unit == 1 ? "key" : "rom";
}

int print_word(std::span<char> line, const char *text, char letter, int32_t word) {
    return letter == 'x' ? snprintf(line.data(), line.size(), text, static_cast<uint32_t>(word))
                         : snprintf(line.data(), line.size(), text, word);
}

// Prints the item of the line with this number: a field or a word of a sample.
int print_item(std::span<char> line, const conversion &item, const line_row &row, size_t number,
               const TestRecord &record) {
    char text[CONVERSION_MAX] = {};
    std::copy_n(item.begin, item.length, text);
    if (number >= row.field_count)
        return print_word(line, text, item.letter(), sample_word(record, number - row.field_count));
    switch (const line_field &field = row.fields[number]; field.form) {
    case field_form::NUMBER:
        return print_word(line, text, item.letter(),
                          std::bit_cast<record_words>(record)[field.word]);
    case field_form::LIST_NAME:
        return snprintf(line.data(), line.size(), text, list_name(record.unit));
    case field_form::REPORT_NAME:
        return snprintf(line.data(), line.size(), text, report_name(record.unit));
    case field_form::BIT_RATE:
        return snprintf(line.data(), line.size(), text, static_cast<long long>(bit_rate(record)));
    case field_form::READ_RATE:
        return snprintf(line.data(), line.size(), text, long{read_rate(record)});
    case field_form::WHOLE_SECONDS:
        return snprintf(line.data(), line.size(), text, long{static_cast<int32_t>(elapsed_s())});
    }
    return 0;
}

// Takes a copy of the record: its test may change it meanwhile.
int print_row(std::span<char> line, const line_row &row, TestRecord record) {
    size_t length = 0;
    size_t number = 0;
    for (const char *at = row.format; *at != '\0';) {
        if (*at != '%') {
            line[length++] = *at++;
            continue;
        }
        const conversion item = conversion_at(at);
        length +=
            static_cast<size_t>(print_item(line.subspan(length), item, row, number++, record));
        at += item.length;
    }
    line[length] = '\0';
    return static_cast<int>(length);
}

} // namespace

int format_line(std::span<const line_row> rows, const TestRecord &record, std::span<char> line) {
    line[0] = '\0';
    const auto row = std::find_if(rows.begin(), rows.end(), [&record](const line_row &each) {
        return static_cast<int32_t>(each.letter) == record.test_letter;
    });
    return row != rows.end() ? print_row(line, *row, record) : 0;
}
