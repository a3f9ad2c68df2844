#include "results/judging/comparison.h"

#include <algorithm>

namespace {

// A report shows no kind code, and not all records.
bool is_as_expected(const expected_record &wanted, const TestRecord &seen, bool is_report) {
    return wanted.letter == seen.test_letter &&
           (is_report ? wanted.is_in_report : wanted.kind == seen.kind_code) &&
           (wanted.unit == seen.unit || seen.unit == 0 || wanted.unit == 0);
}

record_verdict not_there(const expected_record &wanted, bool is_report) {
    const bool is_panel = wanted.letter == static_cast<int32_t>(record_letter::PANEL);
    const bool needs_log = is_report && !wanted.is_in_report && !is_panel;
    record_verdict judged = {.is = is_panel || needs_log ? verdict::NOT_JUDGED : verdict::MISSING,
                             .is_expected = true,
                             .needs_log = needs_log,
                             .name = wanted.name,
                             .option = wanted.option,
                             .errors = {},
                             .reasons = {},
                             .samples = {}};
    judged.reasons.emplace_back(is_panel    ? "the front panel has no line in the list"
                                : needs_log ? "the report has no line for it"
                                : is_report ? "expected, but the report has no such line here"
                                            : "expected, but the list has no such line here");
    return judged;
}

// The longest common subsequence of what is expected and what is there: [i][j] is its length from
// there on.
std::vector<std::vector<size_t>> common_lengths(const std::vector<expected_record> &expected,
                                                const std::vector<record_verdict> &records,
                                                bool is_report) {
    std::vector<std::vector<size_t>> length(expected.size() + 1,
                                            std::vector<size_t>(records.size() + 1));
    for (size_t i = expected.size(); i-- > 0;)
        for (size_t j = records.size(); j-- > 0;)
            length[i][j] = is_as_expected(expected[i], records[j].record->newest, is_report)
                               ? length[i + 1][j + 1] + 1
                               : std::max(length[i + 1][j], length[i][j + 1]);
    return length;
}

} // namespace

void compare_with_expected(std::vector<record_verdict> &records,
                           const std::vector<expected_record> &expected, bool is_report) {
    const auto length = common_lengths(expected, records, is_report);
    std::vector<record_verdict> compared;
    size_t i = 0;
    size_t j = 0;
    while (i < expected.size() || j < records.size()) {
        if (i < expected.size() && j < records.size() &&
            is_as_expected(expected[i], records[j].record->newest, is_report)) {
            compared.push_back(std::move(records[j++]));
            compared.back().is_expected = true;
            compared.back().option = expected[i++].option;
        } else if (j == records.size() ||
                   (i < expected.size() && length[i + 1][j] >= length[i][j + 1]))
            compared.push_back(not_there(expected[i++], is_report));
        else {
            compared.push_back(std::move(records[j++]));
            compared.back().is = std::max(compared.back().is, verdict::UNEXPECTED);
            compared.back().reasons.emplace_back("not expected");
        }
    }
    records = std::move(compared);
}
