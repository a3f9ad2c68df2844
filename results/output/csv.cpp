#include "ctl/text.h"
#include "results/judging/words.h"
#include "results/output/report.h"
#include "results/reading/rows/row_reader.h"

namespace {

// A cell that a spreadsheet would take for a formula gets an apostrophe.
std::string cell(const std::string &text) {
    std::string value = printable(text);
    if (!value.empty() && std::string_view("=+-@\t").find(value[0]) != std::string_view::npos)
        value.insert(0, 1, '\'');
    if (value.find_first_of("\",;\n") == std::string::npos)
        return value;
    for (size_t at = 0; (at = value.find('"', at)) != std::string::npos; at += 2)
        value.insert(at, 1, '"');
    return std::string("\"").append(value).append("\"");
}

class csv_form : public list_observer {
public:
    explicit csv_form(std::ostream &to) : out(to) {
        out << "time,host,ident,run,record,name,kind,first count,second count,error 1,error 2,"
               "error 3,sample position,sample value\r\n";
    }

    void list_taken(const board_history &board, size_t run, const open_list &list) override {
        for (size_t i = 0; i < list.records.size(); ++i)
            add(board, run, list.time_ms, i, list.records[i]);
    }

private:
    void add(const board_history &board, size_t run, int64_t time_ms, size_t index,
             const TestRecord &record) {
        const line_layout &layout = layout_of(record.test_letter);
        out << time_text(time_ms) << ',' << cell(board.host) << ',' << cell(board.ident) << ','
            << run + 1 << ',' << index + 1 << ',' << cell(printable_name(record)) << ','
            << record.kind_code;
        for (const uint8_t word : layout.counts)
            out << ',' << word_of(record, word);
        for (size_t i = 0; i < layout.errors.size(); ++i)
            out << ',' << (i < layout.error_count ? word_of(record, layout.errors[i]) : 0);
        const ErrorSample newest = samples_newest_first(record)[0];
        out << ',' << newest.position << ',' << newest.value << "\r\n";
    }

    std::ostream &out;
};

} // namespace

std::unique_ptr<list_observer> csv_rows(std::ostream &out) {
    return std::make_unique<csv_form>(out);
}
