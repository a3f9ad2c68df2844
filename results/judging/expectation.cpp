#include "results/judging/expectation.h"

#include <algorithm>
#include <getopt.h>
#include <optional>
#include <span>
#include <stdexcept>

#include "ctl/run/tests.h"
#include "runtime/number.h"
#include "supervisor/lists/report_rows.h"
#include "supervisor/plan/option_table.h"
#include "supervisor/plan/option_walk.h"
#include "supervisor/status_table.h"

namespace {

constexpr int32_t FIO_PORT = 5;
constexpr int32_t OTHER_SPI_DEVICE = 2;

[[noreturn]] void refuse_options(const std::string &options, const std::string &why) {
    std::string text = "--expect \"";
    throw std::invalid_argument(text.append(options).append("\": ").append(why));
}

std::vector<std::string> split_words(const std::string &text) {
    std::vector<std::string> words;
    char quote = 0;
    bool is_in_word = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char letter = text[i];
        const bool is_quote = quote == 0 ? letter == '\'' || letter == '"' : letter == quote;
        if (quote == 0 && (letter == ' ' || letter == '\t' || letter == '\n')) {
            is_in_word = false;
            continue;
        }
        if (!is_in_word)
            words.emplace_back();
        is_in_word = true;
        if (is_quote)
            quote = quote == 0 ? letter : '\0';
        else if (letter == '\\' && quote != '\'' && i + 1 < text.size())
            words.back() += text[++i];
        else
            words.back() += letter;
    }
    if (quote != 0)
        refuse_options(text, "a quote is not closed");
    return words;
}

// The report has lines for as many records, from the first, as there are processes.
bool is_in_report(const TestRecord &record, int32_t index) {
    const bool has_line = std::ranges::any_of(REPORT_ROWS, [&record](const line_row &row) {
        return static_cast<int32_t>(row.letter) == record.test_letter && row.format[0] != '\0';
    });
    return has_line && index <= record_count - bogus_count;
}

// The device as the test will write it into its record.
int32_t unit_of(const TestRecord &record, bool is_first, const std::string &argument) {
    switch (static_cast<record_letter>(record.test_letter)) {
    case record_letter::CROSSOVER:
        return number_of(
            std::string(1, is_first || argument.size() < 2 ? argument[0] : argument[1]).c_str());
    case record_letter::RECEIVER:
    case record_letter::PRODUCER:
        return argument.empty() ? FIO_PORT : number_of(argument.c_str());
    case record_letter::FIO:
        return FIO_PORT;
    case record_letter::SPI_FIO:
        return 'B';
    case record_letter::SPI_DEVICE:
        return number_of(argument.c_str()) == 1 ? 1 : OTHER_SPI_DEVICE;
    default:
        return 0;
    }
}

class plan_walk {
public:
    explicit plan_walk(const std::string &options) : text(options) {
        table = {};
        set_status_table(&table);
        record_count = bogus_count = sync_owner = 0;
    }
    plan_walk(const plan_walk &) = delete;
    plan_walk &operator=(const plan_walk &) = delete;
    ~plan_walk() {
        set_status_table(nullptr);
        record_count = bogus_count = sync_owner = 0;
    }

    void take(char letter, const char *argument) {
        const std::span<const option_row> rows = option_table();
        const auto row = std::ranges::find_if(rows, [letter](const option_row &each) {
            return static_cast<char>(each.letter) == letter;
        });
        if (row == rows.end())
            refuse_options(text, "an option is unknown or lacks its argument");
        const int32_t before = record_count;
        apply_option(*row, 1, argument);
        for (int32_t i = before + 1; i <= record_count; ++i)
            claims.push_back({i, i == before + 1, letter, argument});
    }

    // An option can also mark the record of the test before it, so the records are looked at last.
    std::vector<expected_record> records() {
        std::vector<expected_record> expected;
        for (const claim &each : claims) {
            TestRecord &record = table.records[static_cast<size_t>(each.index)];
            record.unit = unit_of(record, each.is_first, each.argument);
            expected.push_back({record.test_letter, record.kind_code, record.unit,
                                record.hold != HOLD_NONE, is_in_report(record, each.index),
                                std::string("-").append(1, each.letter).append(each.argument),
                                list_name(record)});
        }
        return expected;
    }

private:
    struct claim {
        int32_t index;
        bool is_first; // of the option's records
        char letter;
        std::string argument;
    };

    const std::string &text;
    StatusTable table;
    std::vector<claim> claims;
};

} // namespace

std::vector<expected_record> expect(const std::string &options) {
    std::vector<std::string> words = split_words(options);
    words.insert(words.begin(), "hk_stress");
    words.resize(std::min(words.size(), static_cast<size_t>(ARGUMENTS_MAX)));
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    plan_walk walk(options);
    optind = 0; // see getopt(3): it starts from the beginning
    opterr = 0;
    const auto count = static_cast<int>(words.size());
    for (int letter; (letter = getopt(count, arguments.data(), OPTION_STRING)) != -1;)
        walk.take(static_cast<char>(letter), optarg != nullptr ? optarg : "");
    return walk.records();
}
