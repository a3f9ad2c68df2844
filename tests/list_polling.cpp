#include "tests/list_polling.h"

#include <algorithm>
#include <stdexcept>
#include <unistd.h>

std::vector<result_line> list_now(board_run &run) {
    std::vector<result_line> items;
    for (const std::string &text : run.request_list())
        if (const auto item = parse_result_line(text))
            items.push_back(*item);
    return items;
}

bool second_count_is_at_least::operator()(const std::vector<result_line> &items) const {
    return std::all_of(items.begin(), items.end(),
                       [this](const result_line &item) { return item.counts[1] >= count; });
}

void pause_between_lists() {
    (void)usleep(100000);
}

void give_up(const board_run &run) {
    std::string text = "the counters never got there; the last lines of the log:\n";
    for (size_t i = run.log.size() < 12 ? 0 : run.log.size() - 12; i < run.log.size(); ++i)
        text += run.log[i].text + "\n";
    throw std::runtime_error(text);
}
