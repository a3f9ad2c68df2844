#include "results/reading/rows/line_layout.h"

#include "results/reading/rows/compiled_row.h"
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
