#include "results/history/log_history.h"

#include "results/history/run_choice.h"
#include "results/reading/rows/row_reader.h"

namespace {

// rsyslog can send a line twice, the second time late, with the time that it had.
bool is_repeated(const board_history &board, const parsed_line &line) {
    const run_history *run = board.last_run();
    return run != nullptr && line.time_ms != NO_TIME && line.time_ms <= run->last_ms &&
           line.time_ms >= run->first_ms;
}

// A list has the same lines as the one before, if nothing is lost.
bool read_item(const board_history &board, std::string_view line, TestRecord &record) {
    const run_history *run = board.last_run();
    const size_t index = board.list != nullptr ? board.list->records.size() : 0;
    if (run == nullptr || index >= run->records.size())
        return read_results_line(line, record);
    const record_history &before = run->records[index];
    return read_next_line(line, before.start, *before.layout, before.newest, record) ||
           read_results_line(line, record);
}

} // namespace

board_history &log_history::board_of(const parsed_line &line) {
    if (last_board != nullptr && last_board->ident == line.ident && last_board->host == line.host)
        return *last_board;
    key.assign(line.host).append(1, '\0').append(line.ident);
    const auto [found, is_new] = by_name.try_emplace(key, nullptr);
    if (is_new) {
        boards.emplace_back();
        found->second = &boards.back();
        found->second->host = line.host;
        found->second->ident = line.ident;
    }
    last_board = found->second;
    return *last_board;
}

void log_history::open(board_history &board, const parsed_line &line, bool has_start) {
    if (spare_lists.empty())
        board.list = std::make_unique<open_list>();
    else {
        board.list = std::move(spare_lists.back());
        spare_lists.pop_back();
    }
    board.list->records.clear();
    board.list->time_ms = line.time_ms;
    board.list->pid = line.pid;
    board.list->has_start = has_start;
    board.list->is_damaged = false;
}

void log_history::begin_list(board_history &board, const parsed_line &line) {
    board.was_interrupted = board.list != nullptr && !board.list->records.empty();
    if (board.list != nullptr)
        close_list(board, false);
    open(board, line, true);
}

void log_history::take_item(board_history &board, const parsed_line &line) {
    TestRecord record;
    const bool is_readable = read_item(board, line.text, record);
    unreadable_lines += is_readable ? 0 : 1;
    if (board.list == nullptr && is_repeated(board, line))
        return;
    if (board.list == nullptr)
        open(board, line, false);
    if (is_readable && board.list->records.size() < static_cast<size_t>(TEST_RECORDS))
        board.list->records.push_back(record);
    else
        board.list->is_damaged = true;
}

bool log_history::end_list(board_history &board) {
    if (board.list != nullptr) {
        close_list(board, true);
        return true;
    }
    if (board.was_interrupted && !board.runs.empty())
        board.runs.back().is_ambiguous = true; // two lists begun, two ended
    return false;
}

void log_history::use_list(board_history &board, open_list &list, bool has_end) {
    const run_history *before = board.last_run();
    const bool is_repeated_start = !has_end && list.records.empty() && before != nullptr &&
                                   list.time_ms != NO_TIME && list.time_ms < before->last_ms;
    if (is_repeated_start)
        return;
    if (!list.has_start && before == nullptr && has_end && !list.is_damaged)
        return; // the log begins within a list
    list.is_damaged = list.is_damaged || !has_end || !list.has_start;
    const size_t index = choose_run(board, list);
    run_history &run = board.runs[index];
    take_list(run, list);
    move_complaints(board.complaints, run.complaints);
    for (list_observer *observer : observers)
        observer->list_taken(board, index, list);
}

void log_history::close_list(board_history &board, bool has_end) {
    std::unique_ptr<open_list> list = std::move(board.list);
    use_list(board, *list, has_end);
    spare_lists.push_back(std::move(list));
}

const board_history *log_history::take(const parsed_line &line) {
    if (line.kind == message_kind::OTHER)
        return nullptr;
    board_history &board = board_of(line);
    switch (line.kind) {
    case message_kind::LIST_BEGIN:
        begin_list(board, line);
        break;
    case message_kind::ITEM:
        take_item(board, line);
        break;
    case message_kind::LIST_END:
        return end_list(board) ? &board : nullptr;
    case message_kind::COMPLAINT:
        add_complaint(board.complaints, line.text);
        break;
    case message_kind::OTHER:
        break;
    }
    return nullptr;
}

void log_history::take_reports(const std::string &name, const report_reader &read) {
    unreadable_lines += read.unreadable_lines;
    board_history &board = boards.emplace_back();
    board.ident = name;
    board.is_report = true;
    for (const status_report_lines &report : read.reports)
        board.runs.push_back(run_of(report));
}

void log_history::finish() {
    for (board_history &board : boards) {
        if (board.list != nullptr)
            close_list(board, false);
        if (!board.runs.empty())
            move_complaints(board.complaints, board.runs.back().complaints);
    }
}
