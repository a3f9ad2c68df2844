#include "results/reading/rows/line_layout.h"

#include <algorithm>
#include <span>

#include "results/reading/rows/compiled_row.h"
#include "supervisor/lists/report_rows.h"
#include "supervisor/lists/results_rows.h"

namespace {

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

bool is_count(const line_item &item) {
    return is_count_word(item.word) && item.form == field_form::NUMBER;
}

line_layout layout_of(const line_row &row) {
    line_layout layout;
    layout.letter = row.letter;
    size_t counts = 0;
    for (const line_item &item : compile(row).items) {
        if (is_count(item) && counts < layout.counts.size()) {
            std::string_view name = item.text.substr(0, item.text.size() - 1);
            layout.between = item.text;
            layout.count_names[counts] = name.substr(name.rfind(' ') + 1);
            layout.counts[counts++] = item.word;
        }
        if (is_error_word(item.word))
            layout.errors[layout.error_count++] = item.word;
    }
    layout.samples = static_cast<size_t>(row.samples);
    if (counts == 1) {
        layout.counts[1] = layout.counts[0];
        layout.count_names[1] = layout.count_names[0];
    }
    return layout;
}

using layouts = std::array<line_layout, 128>;

line_layout layout_in_report(const line_row &row, const line_layout &in_list) {
    line_layout layout = layout_of(row);
    const std::span shown(layout.errors.data(), layout.error_count);
    for (size_t i = 0; i < in_list.error_count; ++i)
        layout.is_shown[i] = std::ranges::find(shown, in_list.errors[i]) != shown.end();
    layout.errors = in_list.errors;
    layout.error_count = in_list.error_count;
    return layout;
}

} // namespace

const line_layout &layout_of(int32_t letter) {
    static const layouts LAYOUTS = [] {
        layouts by_letter;
        for (const line_row &row : RESULTS_ROWS)
            if (row.letter == record_letter::RECEIVER)
                by_letter.fill(layout_of(row));
        for (const line_row &row : RESULTS_ROWS)
            if (row.format[0] != '\0')
                by_letter[static_cast<size_t>(row.letter)] = layout_of(row);
        return by_letter;
    }();
    return LAYOUTS[static_cast<size_t>(letter) & 127U];
}

const line_layout &report_layout_of(int32_t letter) {
    static const layouts LAYOUTS = [] {
        layouts by_letter;
        for (size_t code = 0; code < by_letter.size(); ++code)
            by_letter[code] = layout_of(static_cast<int32_t>(code));
        for (const line_row &row : REPORT_ROWS)
            if (row.format[0] != '\0') {
                line_layout &own = by_letter[static_cast<size_t>(row.letter)];
                own = layout_in_report(row, own);
            }
        return by_letter;
    }();
    return LAYOUTS[static_cast<size_t>(letter) & 127U];
}
