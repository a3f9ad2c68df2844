// What a log says of each board: its runs, and of each run the records as the last list shows them,
// with what has to be remembered from the lists before. A night of lists and one list take the same
// memory.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "results/reading/lines/log_line.h"
#include "results/reading/report_reader.h"
#include "results/reading/rows/row_reader.h"
#include "runtime/record.h"

// Log periods are 5 to 600 s, rounded up to a multiple of 1 to 60 s, see hk_stress(8).
constexpr int64_t SHORTEST_PERIOD_MS = 5000;
constexpr int64_t LONGEST_PERIOD_MS = 660000;

// One record of a run. Counters are words of 32 bits that start again at 0 after 2^32.
struct record_history {
    TestRecord newest;                         // as the last list shows it
    const line_layout *layout = nullptr;       // of its line
    line_start start;                          // of its line
    std::array<uint32_t, 2> first_counts = {}; // in the first list
    std::array<uint16_t, 2> count_wraps = {};
    std::array<uint16_t, 3> error_wraps = {};                           // in the order of the line
    std::array<int64_t, 3> error_seen_ms = {NO_TIME, NO_TIME, NO_TIME}; // first list that shows it
    int64_t moved_at_ms = 0;         // on the run's clock: the last list that shows progress
    int64_t longest_rest_ms = 0;     // without progress, after the first
    int64_t rest_since_ms = NO_TIME; // of the day: where the longest rest began
    bool has_bad_blocks = false;     // by the bit rate of a report, which does not count them

    uint64_t count(size_t number) const; // 0 or 1: the first or second count of the line
    uint64_t error(size_t number) const; // 0 to 2: an error counter of the line
    uint64_t moved_since_first(size_t number) const;
    bool is_clean() const { // no error up to now
        return newest.errors == 0 && newest.errors2 == 0 && newest.errors3 == 0;
    }
};

// The time between two lists of a run, by majority: lists that a signal or the end adds are few.
struct log_period {
    int64_t ms = 0; // 0: not known
    int32_t votes = 0;
    int64_t pending_ms = 0; // the last interval: counts unless the next list follows at once

    bool is_added = false; // a signal added the newest list: it came sooner

    void add_interval(int64_t interval_ms);
    int64_t value_ms() const;
};

enum class complaint : uint8_t { PORT, EEPROM, NO_REPLY, MISPLACED, ODD_LENGTH, END };
constexpr size_t COMPLAINTS = static_cast<size_t>(complaint::END);

// The messages of the tests in a run, by kind.
struct complaint_counts {
    std::array<uint32_t, COMPLAINTS> counts = {};
    std::array<std::string, COMPLAINTS> first; // the first text of each
};

// Lists at which the counters hardly moved although they move all the time. They come in equal
// intervals if two runs write lists in turn.
struct hesitations {
    int64_t last_ms = NO_TIME; // on the run's clock
    int64_t interval_ms = NO_TIME;
};

// A run that began after the end of another, with higher counters: how long after its last list,
// and by how many steps.
struct growth {
    int64_t interval_ms = NO_TIME;
    double step = 0;
};

struct run_history {
    std::vector<record_history> records;
    std::unique_ptr<complaint_counts> complaints; // null if there are none
    log_period period;
    hesitations pauses;
    int64_t first_ms = NO_TIME; // the first list, of the day
    int64_t last_ms = NO_TIME;
    int64_t clock_ms = 0;   // since the first list; a clock that is set back does not count
    uint32_t lists = 0;     // complete ones
    uint32_t cut_lists = 0; // without end or start, or with a line that could not be read
    int32_t pid = 0;
    bool is_ambiguous = false; // two runs at once under one ident
    bool is_closed = false;    // its last list came twice: the run has ended
    bool is_report = false;    // known from its status report alone: no list, no time
};

// Returns true if a record without progress for so long is at a stand: for a log period at least.
// Lists that a signal or the end adds come sooner.
bool is_a_stall(const run_history &run, int64_t rest_ms);

// The list that is being received.
struct open_list {
    std::vector<TestRecord> records;
    int64_t time_ms = NO_TIME;
    int32_t pid = 0;
    bool has_start = true;
    bool is_damaged = false; // without start or end, or with a line that could not be read
};

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
    // Takes the status reports of a file that holds no list: each is a run of one board.
    void take_reports(const std::string &name, const report_reader &read);
    // Takes what is left of lists without an end.
    void finish();

    std::deque<board_history> boards; // in the order of their first line
    uint64_t unreadable_lines = 0;    // begin like a line of a list and are none
    uint64_t repeated_lines = 0;      // sent twice by the network
    std::vector<list_observer *> observers;

private:
    board_history &board_of(const parsed_line &line);
    void begin_list(board_history &board, const parsed_line &line);
    void take_item(board_history &board, const parsed_line &line);
    bool end_list(board_history &board, const parsed_line &line);
    void close_list(board_history &board, bool has_end);
    void use_list(board_history &board, open_list &list, bool has_end);
    void open(board_history &board, const parsed_line &line, bool has_start);

    std::unordered_map<std::string, board_history *> by_name;
    board_history *last_board = nullptr;
    std::vector<std::unique_ptr<open_list>> spare_lists;
    std::string key;
};
