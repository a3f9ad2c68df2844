#include "tests/support/list_polling.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <unistd.h>

namespace {

// A line may be incomplete: a test that has not opened its device has no letter yet.
std::vector<result_line> parse_list(const std::vector<std::string> &texts) {
    std::vector<result_line> items;
    for (const std::string &text : texts)
        items.push_back(parse_result_line(text).value_or(result_line()));
    return items;
}

} // namespace

std::vector<result_line> list_now(board_run &run) {
    return parse_list(run.request_list());
}

std::vector<result_line> last_list(const board_run &run) {
    std::vector<std::string> last;
    size_t from = 0;
    while (const auto list = run.next_list(from))
        last = *list;
    return parse_list(last);
}

std::vector<result_line>
lists_until(board_run &run, const std::function<bool(const std::vector<result_line> &)> &claim) {
    const auto latest = std::chrono::steady_clock::now() + wait_limit();
    while (std::chrono::steady_clock::now() < latest) {
        const std::vector<result_line> items = list_now(run);
        if (items.empty())
            break; // the run has ended or does not answer
        if (claim(items))
            return items;
        pause_between_lists();
    }
    std::string text = "the counters never got there; the last lines of the log:\n";
    for (size_t i = run.log.size() < 12 ? 0 : run.log.size() - 12; i < run.log.size(); ++i)
        text += run.log[i].text + "\n";
    throw std::runtime_error(text);
}

bool second_count_is_at_least::operator()(const std::vector<result_line> &items) const {
    return std::all_of(
        items.begin(), items.end(),
        [this](const result_line &item) { return item.counts[1] >= count; });
}

void pause_between_lists() {
    (void)usleep(100000);
}
