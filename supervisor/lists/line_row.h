// A line of the results list or of the status report as data: its format, and the words of the
// record that it prints, in order. The compiler checks that they match.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "runtime/record.h"

// How a field is computed from its word of the record.
enum class field_form : uint8_t {
    NUMBER,       // the word: signed, unsigned in hexadecimal, or a character, by its conversion
    LIST_NAME,    // name of an SPI device in the list
    REPORT_NAME,  // name of an SPI device in the report
    BIT_RATE,     // from the word and the previous report, see rates.h
    READ_RATE,    // likewise
    WHOLE_SECONDS // since the previous report; uses no word of the record
};

constexpr uint8_t NO_WORD = 255;

struct line_field {
    uint8_t word = NO_WORD; // of the record, 0..28
    const char *name = "";
    field_form form = field_form::NUMBER;
};

#define RECORD_WORD(member) offsetof(TestRecord, member) / sizeof(int32_t), #member

namespace field {

constexpr line_field PID = {RECORD_WORD(pid)};
constexpr line_field UNIT = {RECORD_WORD(unit)};
constexpr line_field LIST_NAME = {RECORD_WORD(unit), field_form::LIST_NAME};
constexpr line_field REPORT_NAME = {RECORD_WORD(unit), field_form::REPORT_NAME};
constexpr line_field READ_COUNT = {RECORD_WORD(read_count)};
constexpr line_field WRITE_COUNT = {RECORD_WORD(write_count)};
constexpr line_field PREV_READ_COUNT = {RECORD_WORD(prev_read_count)};
constexpr line_field ERRORS = {RECORD_WORD(errors)};
constexpr line_field ERRORS2 = {RECORD_WORD(errors2)};
constexpr line_field ERRORS3 = {RECORD_WORD(errors3)};
constexpr line_field KIND_CODE = {RECORD_WORD(kind_code)};
constexpr line_field BIT_RATE = {RECORD_WORD(read_count), field_form::BIT_RATE};
constexpr line_field READ_RATE = {RECORD_WORD(read_count), field_form::READ_RATE};
constexpr line_field WHOLE_SECONDS = {NO_WORD, "seconds", field_form::WHOLE_SECONDS};

} // namespace field

#undef RECORD_WORD

// One conversion of a format, see printf(3): "%d", "%08x", "%6lld".
struct conversion {
    const char *begin;
    size_t length;
    size_t longs; // letters 'l' in it

    constexpr char letter() const {
        return begin[length - 1];
    }
};

// Returns the start of the first conversion, or the end of the text if there is none.
constexpr const char *find_conversion(const char *format) {
    while (*format != '\0' && *format != '%')
        ++format;
    return format;
}

// Reads the conversion at a '%': digits (a width, with or without a leading 0), then 'l' or 'll',
// then the letter. It knows no other part of a conversion.
constexpr conversion conversion_at(const char *format) {
    const char *at = format + 1;
    while (*at >= '0' && *at <= '9')
        ++at;
    size_t longs = 0;
    for (; *at == 'l'; ++at)
        ++longs;
    return {format, static_cast<size_t>(at - format) + 1, longs};
}

constexpr size_t CONVERSION_MAX = 8; // "%6lld" and the closing zero

// Returns true if the conversion can print a field of this form.
constexpr bool prints(const conversion &item, field_form form) {
    if (item.length >= CONVERSION_MAX)
        return false;
    switch (form) {
    case field_form::NUMBER:
        return item.longs == 0 &&
               (item.letter() == 'd' || item.letter() == 'x' || item.letter() == 'c');
    case field_form::LIST_NAME:
    case field_form::REPORT_NAME:
        return item.longs == 0 && item.letter() == 's';
    case field_form::BIT_RATE:
        return item.longs == 2 && item.letter() == 'd';
    case field_form::READ_RATE:
    case field_form::WHOLE_SECONDS:
        return item.longs == 1 && item.letter() == 'd';
    }
    return false;
}

// A wrong row calls this and does not compile, since this is not constexpr.
inline void format_and_fields_do_not_match() {}

constexpr size_t FIELDS_MAX = 7;

// The line of a record letter. A letter without a line has an empty format.
struct line_row {
    record_letter letter;
    const char *format;
    std::array<line_field, FIELDS_MAX> fields = {};
    size_t field_count = 0;
    int32_t samples; // after the fields, newest first, position before value

    // Compiles only if the conversions and the fields and sample words match one to one, in order.
    consteval line_row(record_letter of, const char *text,
                       std::initializer_list<line_field> printed = {}, int32_t sample_count = 0)
        : letter(of), format(text), field_count(printed.size()), samples(sample_count) {
        if (printed.size() > FIELDS_MAX || sample_count > RING_SLOTS)
            format_and_fields_do_not_match();
        std::copy(printed.begin(), printed.end(), fields.begin());
        const size_t items = field_count + 2 * static_cast<size_t>(samples);
        const char *at = find_conversion(format);
        for (size_t item = 0; item < items; ++item) {
            if (*at == '\0' || !prints(conversion_at(at), form_of(item)))
                format_and_fields_do_not_match();
            at = find_conversion(at + conversion_at(at).length);
        }
        if (*at != '\0')
            format_and_fields_do_not_match();
    }

    // Returns the form of an item of the line: a field or a word of a sample.
    constexpr field_form form_of(size_t item) const {
        return item < field_count ? fields[item].form : field_form::NUMBER;
    }
};

// Returns the bytes of the longest text that a conversion prints.
constexpr size_t longest_item(const conversion &item) {
    return item.longs != 0 ? sizeof "-9223372036854775808" - 1 : sizeof "-2147483648" - 1;
}

// Returns the bytes of the longest line of the table, with its closing zero.
template <size_t rows>
constexpr size_t longest_line(const line_row (&table)[rows]) {
    size_t longest = 0;
    for (const line_row &row : table) {
        size_t length = 1;
        for (const char *at = row.format; *at != '\0';) {
            const bool is_text = *at != '%';
            length += is_text ? 1 : longest_item(conversion_at(at));
            at += is_text ? 1 : conversion_at(at).length;
        }
        longest = std::max(longest, length);
    }
    return longest;
}

// Returns true if every record letter has exactly one row in the table.
template <typename row_type, size_t rows>
constexpr bool has_a_row_for_every_letter(const row_type (&table)[rows]) {
    size_t letters = 0;
    for (int32_t code = 0; code < 128; ++code) {
        const auto is_of = [code](const row_type &row) {
            return static_cast<int32_t>(row.letter) == code;
        };
        if (!is_record_letter(code))
            continue;
        ++letters;
        if (std::count_if(std::begin(table), std::end(table), is_of) != 1)
            return false;
    }
    return letters == rows;
}
