#include "results/judging/totals.h"

#include <algorithm>

#include "ctl/text.h"
#include "results/judging/words.h"

namespace {

// Of two boards the worse one counts, and one on which nothing was tested is worse than a good one.
verdict worse_board(verdict one, verdict other) {
    const auto rank = [](verdict is) { return is == verdict::PASS ? -1 : static_cast<int>(is); };
    return std::ranges::max(one, other, {}, rank);
}

template <typename Item>
void keep(std::vector<Item> &list, Item item) {
    if (list.size() < totals::NAMES_KEPT)
        list.push_back(std::move(item));
}

std::string counted(size_t count, const char *noun) {
    return text_of("%zu %s%s", count, noun, count == 1 ? "" : "s");
}

std::string listed(const std::vector<std::string> &names, size_t count) {
    std::string text;
    for (const std::string &name : names)
        text.append(text.empty() ? "" : ", ").append(name);
    if (count > names.size())
        text += text_of(" and %zu more", count - names.size());
    return text;
}

std::string listed(const std::vector<totals::named> &items, size_t count) {
    std::vector<std::string> names;
    names.reserve(items.size());
    for (const totals::named &item : items)
        names.push_back(item.reason.empty()
                            ? item.name
                            : text_of("%s (%s)", item.name.c_str(), item.reason.c_str()));
    return listed(names, count);
}

const char *word_for(const totals &all) {
    switch (exit_code_of(all)) {
    case EVERYTHING_PASSES:
        return "PASS";
    case SOMETHING_IS_WRONG:
        return "FAIL";
    default:
        return all.of(verdict::PASS) > 0       ? "NOT ALL TESTED"
               : all.is == verdict::NOT_JUDGED ? "NOT JUDGED"
                                               : "NOTHING TESTED";
    }
}

size_t judged_records(const totals &all) {
    size_t sum = 0;
    for (const size_t count : all.records)
        sum += count;
    return sum;
}

} // namespace

void totals::add(const record_verdict &record, const std::string &where) {
    ++records[static_cast<size_t>(record.is)];
    const std::string name = record.name + where;
    if (record.is > verdict::PASS) {
        ++worst_count;
        keep(worst, {name, record.reasons.empty() ? "" : record.reasons[0]});
    }
    if (record.is == verdict::IDLE)
        keep(idle, name);
    for (const moved_error &error : record.errors)
        if (!error.allowed_by.empty()) {
            ++allowed_count;
            keep(allowed, {name, error_words(error)});
        }
}

void totals::add(const board_verdict &board, bool has_others) {
    const std::string where = has_others ? std::string(" of ").append(name_of(*board.board)) : "";
    is = boards++ == 0 ? board.is : worse_board(is, board.is);
    runs += board.runs.size();
    for (const run_verdict &run : board.runs) {
        reports += run.run->is_report ? 1 : 0;
        for (const record_verdict &record : run.records)
            add(record, where);
        if ((run.run->cut_lists > 0 || run.run->is_ambiguous) && !run.remarks.empty()) {
            ++worst_count;
            keep(worst, {std::string("run ").append(std::to_string(run.number)).append(where),
                         run.remarks[0]});
        }
    }
}

totals judge_all(const log_history &history, const judge_rules &rules) {
    totals all;
    size_t with_lists = 0;
    for (const board_history &board : history.boards)
        with_lists += board.runs.empty() ? 0 : 1;
    for (const board_history &board : history.boards)
        if (!board.runs.empty())
            all.add(judge(board, rules), with_lists > 1);
    all.unreadable_lines = history.unreadable_lines;
    return all;
}

exit_code exit_code_of(const totals &all) {
    if (all.is > verdict::PASS)
        return SOMETHING_IS_WRONG;
    return all.is == verdict::PASS ? EVERYTHING_PASSES : NOTHING_WAS_TESTED;
}

std::string sentence_of(const totals &all) {
    if (all.boards == 0)
        return "NOTHING TESTED: there is no results list, and no line of a status report";
    std::string text = text_of("%s: %zu of %s good", word_for(all), all.of(verdict::PASS),
                               counted(judged_records(all), "record").c_str());
    text +=
        text_of(", %s, %s", counted(all.runs, "run").c_str(), counted(all.boards, "board").c_str());
    if (all.worst_count > 0)
        text += text_of("; wrong: %s", listed(all.worst, all.worst_count).c_str());
    if (!all.idle.empty())
        text +=
            text_of("; idle, so not tested: %s", listed(all.idle, all.of(verdict::IDLE)).c_str());
    if (all.of(verdict::NOT_JUDGED) > 0)
        text += text_of("; not judged: %zu", all.of(verdict::NOT_JUDGED));
    if (all.reports > 0 && all.is <= verdict::PASS)
        text += "; a status report alone does not show everything";
    if (all.allowed_count > 0)
        text += text_of("; allowed: %s", listed(all.allowed, all.allowed_count).c_str());
    if (all.unreadable_lines > 0)
        text += text_of("; lines that could not be read: %llu",
                        static_cast<unsigned long long>(all.unreadable_lines));
    return text;
}
