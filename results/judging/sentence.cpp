// The verdict in one line.

#include "ctl/text.h"
#include "results/judging/verdict.h"

namespace {

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
