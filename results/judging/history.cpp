#include "results/judging/history.h"

#include <algorithm>

#include "results/judging/run_choice.h"
#include "results/reading/rows/row_reader.h"

namespace {

constexpr uint64_t WRAP = uint64_t{1} << 32;

complaint complaint_of(std::string_view text) {
    switch (text[0]) {
    case 'C':
        return complaint::PORT;
    case '[':
        return complaint::ODD_LENGTH;
    case '<':
        return text.ends_with('>') ? complaint::NO_REPLY : complaint::MISPLACED;
    case ' ':
        return complaint::MISPLACED;
    default:
        return complaint::EEPROM;
    }
}

void add_complaint(std::unique_ptr<complaint_counts> &complaints, std::string_view text) {
    if (complaints == nullptr)
        complaints = std::make_unique<complaint_counts>();
    const auto kind = static_cast<size_t>(complaint_of(text));
    if (++complaints->counts[kind] == 1)
        complaints->first[kind] = text;
}

void move_complaints(std::unique_ptr<complaint_counts> &from,
                     std::unique_ptr<complaint_counts> &to) {
    if (from == nullptr || to == nullptr) {
        if (from != nullptr)
            to = std::move(from);
        return;
    }
    for (size_t kind = 0; kind < COMPLAINTS; ++kind) {
        to->counts[kind] += from->counts[kind];
        if (to->first[kind].empty())
            to->first[kind] = std::move(from->first[kind]);
    }
    from.reset();
}

// `may_be_end`: a stop adds a list and kills the tests, and the next list can be that of the end.
void note_progress(record_history &record, bool has_moved, bool may_be_end, const run_history &run,
                   int64_t previous_ms) {
    if (has_moved || record.count(1) == 0)
        record.moved_at_ms = run.clock_ms;
    const int64_t rest_ms = run.clock_ms - record.moved_at_ms;
    if (rest_ms <= record.longest_rest_ms || may_be_end)
        return;
    if (record.longest_rest_ms == 0 || run.clock_ms - previous_ms == rest_ms)
        record.rest_since_ms = run.last_ms - rest_ms;
    record.longest_rest_ms = rest_ms;
}

// The memory test counts a block in its first count when it maps it, and in its second when it has
// filled it: a slow block moves only the first.
bool has_progress(const line_layout &layout, const TestRecord &before, const TestRecord &now) {
    const auto has_moved = [&](uint8_t word) {
        return word_of(before, word) != word_of(now, word);
    };
    return has_moved(layout.counts[1]) ||
           (layout.letter == record_letter::DRAM && has_moved(layout.counts[0]));
}

void count_wraps(record_history &record, const line_layout &layout, const TestRecord &now) {
    for (size_t i = 0; i < 2; ++i)
        if (word_of(now, layout.counts[i]) < word_of(record.newest, layout.counts[i]))
            ++record.count_wraps[i];
    for (size_t i = 0; i < layout.error_count; ++i)
        if (word_of(now, layout.errors[i]) < word_of(record.newest, layout.errors[i]))
            ++record.error_wraps[i];
}

void note_errors(record_history &record, const line_layout &layout, int64_t time_ms) {
    if (record.is_clean())
        return;
    for (size_t i = 0; i < layout.error_count; ++i)
        if (record.error_seen_ms[i] == NO_TIME && record.error(i) != 0)
            record.error_seen_ms[i] = time_ms;
}

record_history first_look(const TestRecord &now, const line_layout &layout, int64_t time_ms) {
    record_history record;
    record.newest = now;
    record.layout = &layout;
    record.start = line_start(now);
    record.first_counts = {word_of(now, layout.counts[0]), word_of(now, layout.counts[1])};
    note_errors(record, layout, time_ms);
    return record;
}

void take_record(record_history &record, const TestRecord &now, const run_history &run,
                 int64_t previous_clock_ms, bool may_be_end) {
    const line_layout &layout = *record.layout;
    const bool has_moved = has_progress(layout, record.newest, now);
    count_wraps(record, layout, now);
    if (record.newest.unit != now.unit)
        record.start = line_start(now);
    record.newest = now;
    note_errors(record, layout, run.last_ms);
    note_progress(record, has_moved, may_be_end, run, previous_clock_ms);
}

// A log without times: the shortest period between two lists, unless they are the same.
int64_t time_of(const run_history &run, const open_list &list) {
    if (list.time_ms != NO_TIME || run.last_ms == NO_TIME)
        return list.time_ms != NO_TIME ? list.time_ms : 0;
    return run.last_ms + (is_same(run, list.records) ? 0 : SHORTEST_PERIOD_MS);
}

void take_time(run_history &run, const open_list &list) {
    const int64_t now_ms = time_of(run, list);
    if (run.first_ms == NO_TIME) {
        run.first_ms = run.last_ms = now_ms;
        return;
    }
    const int64_t interval_ms = std::max(now_ms - run.last_ms, int64_t{0});
    run.is_closed = interval_ms < CLOSING_MS && is_same(run, list.records);
    run.clock_ms += interval_ms;
    run.period.add_interval(interval_ms);
    run.last_ms = now_ms;
}

void take_list(run_history &run, const open_list &list) {
    const int64_t previous_clock_ms = run.clock_ms;
    const bool may_be_end = run.period.is_added && is_same(run, list.records);
    take_time(run, list);
    if (run.pid == 0)
        run.pid = list.pid;
    if (list.is_damaged)
        ++run.cut_lists;
    else
        ++run.lists;
    if (run.records.empty())
        run.records.reserve(list.records.size());
    for (size_t i = 0; i < list.records.size(); ++i)
        if (i < run.records.size())
            take_record(run.records[i], list.records[i], run, previous_clock_ms, may_be_end);
        else
            run.records.push_back(
                first_look(list.records[i], layout_of(list.records[i].test_letter), run.last_ms));
}

run_history run_of(const status_report_lines &report) {
    run_history run;
    run.is_report = true;
    run.cut_lists = report.is_cut ? 1 : 0;
    for (const report_line &line : report.lines) {
        run.records.push_back(
            first_look(line.record, report_layout_of(line.record.test_letter), NO_TIME));
        run.records.back().has_bad_blocks = line.bit_rate != 0;
    }
    return run;
}

} // namespace

bool is_a_stall(const run_history &run, int64_t rest_ms) {
    constexpr int64_t ROUNDING_MS = 1500; // times may be whole seconds
    const int64_t period_ms = run.period.value_ms();
    return period_ms != 0 && rest_ms >= std::max(period_ms, SHORTEST_PERIOD_MS) - ROUNDING_MS;
}

uint64_t record_history::count(size_t number) const {
    return count_wraps[number] * WRAP + word_of(newest, layout->counts[number]);
}

uint64_t record_history::error(size_t number) const {
    return number < layout->error_count
               ? error_wraps[number] * WRAP + word_of(newest, layout->errors[number])
               : 0;
}

uint64_t record_history::moved_since_first(size_t number) const {
    return count(number) - first_counts[number];
}

// The vote of Boyer and Moore. Times of a log are whole seconds at worst.
void log_period::add_interval(int64_t interval_ms) {
    constexpr int64_t SAME_MS = 1500;
    if (interval_ms < SHORTEST_PERIOD_MS - SAME_MS) { // one of the two is an added list
        pending_ms = 0;
        is_added = true;
        return;
    }
    is_added = false;
    if (const int64_t vote_ms = pending_ms; vote_ms != 0) {
        if (votes == 0)
            ms = vote_ms;
        votes += std::abs(vote_ms - ms) <= SAME_MS ? 1 : -1;
    }
    pending_ms = interval_ms;
}

int64_t log_period::value_ms() const {
    return ms != 0 ? ms : pending_ms;
}

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

// rsyslog can send a line twice, the second time late, with the time that it had.
bool is_repeated(const board_history &board, const parsed_line &line) {
    const run_history *run = board.last_run();
    return run != nullptr && line.time_ms != NO_TIME && line.time_ms <= run->last_ms &&
           line.time_ms >= run->first_ms;
}

void log_history::begin_list(board_history &board, const parsed_line &line) {
    board.was_interrupted = false;
    if (board.list != nullptr) {
        const bool was_empty = board.list->records.empty();
        board.was_interrupted = !was_empty;
        close_list(board, false);
    }
    open(board, line, true);
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

void log_history::take_item(board_history &board, const parsed_line &line) {
    TestRecord record;
    const bool is_readable = read_item(board, line.text, record);
    unreadable_lines += is_readable ? 0 : 1;
    if (board.list == nullptr && is_repeated(board, line)) {
        ++repeated_lines;
        return;
    }
    if (board.list == nullptr)
        open(board, line, false);
    if (is_readable && board.list->records.size() < static_cast<size_t>(TEST_RECORDS))
        board.list->records.push_back(record);
    else
        board.list->is_damaged = true;
}

bool log_history::end_list(board_history &board, const parsed_line &line) {
    if (board.list != nullptr) {
        close_list(board, true);
        return true;
    }
    if (board.was_interrupted && !board.runs.empty())
        board.runs.back().is_ambiguous = true; // two lists begun, two ended
    else if (is_repeated(board, line))
        ++repeated_lines;
    return false;
}

void log_history::use_list(board_history &board, open_list &list, bool has_end) {
    const run_history *before = board.last_run();
    const bool is_repeated_start = !has_end && list.records.empty() && before != nullptr &&
                                   list.time_ms != NO_TIME && list.time_ms < before->last_ms;
    if (is_repeated_start) {
        ++repeated_lines;
        return;
    }
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
        return end_list(board, line) ? &board : nullptr;
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
    if (read.reports.empty())
        return;
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
