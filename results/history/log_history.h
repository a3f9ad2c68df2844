// What a log says of each board: its runs, in the order of their lists.

#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "results/history/run_history.h"

struct board_history {
    std::string host;
    std::string ident;
    std::vector<run_history> runs;
    std::unique_ptr<open_list> list;              // null between lists
    std::unique_ptr<complaint_counts> complaints; // since the last list: of the next one's run
    growth after_end;                             // see growth
    bool was_interrupted = false;                 // the last list began within another one
    bool is_report = false; // `ident` is the name of a file that holds status reports alone

    const run_history *last_run() const {
        return runs.empty() ? nullptr : &runs.back();
    }
};

// Sees each list as it is taken.
class list_observer {
public:
    virtual ~list_observer() = default;
    virtual void list_taken(const board_history &board, size_t run, const open_list &list) = 0;
};

class log_history {
public:
    // Takes a line of any program. Returns the board if the line completed a list.
    const board_history *take(const parsed_line &line);
    // Takes the status reports of a file that holds no list. Each is a run of one board; without
    // reports the board has no run.
    void take_reports(const std::string &name, const report_reader &read);
    // Takes what is left of lists without an end.
    void finish();

    std::deque<board_history> boards; // in the order of their first line
    uint64_t unreadable_lines = 0;    // begin like a line of a list and are none
    std::vector<list_observer *> observers;

private:
    board_history &board_of(const parsed_line &line);
    void begin_list(board_history &board, const parsed_line &line);
    void take_item(board_history &board, const parsed_line &line);
    bool end_list(board_history &board);
    void close_list(board_history &board, bool has_end);
    void use_list(board_history &board, open_list &list, bool has_end);
    void open(board_history &board, const parsed_line &line, bool has_start);

    std::unordered_map<std::string, board_history *> by_name;
    board_history *last_board = nullptr;
    std::vector<std::unique_ptr<open_list>> spare_lists;
    std::string key;
};
