#include "results/history/log_reader.h"

#include <algorithm>
#include <ctime>
#include <sys/stat.h>

namespace {

struct dated_file {
    std::string path;
    int32_t year = 0;
    int64_t first_ms = NO_TIME;
};

int64_t time_of_entry(line_reader &lines) {
    journal_entry entry;
    while (const auto line = lines.next())
        if (entry.take(*line, lines))
            return entry.line().time_ms;
    return NO_TIME;
}

// The time of the first line that has one; standard input comes last.
int64_t first_time(const std::string &path, int32_t year) {
    constexpr int LINES_TRIED = 50;
    if (path == "-")
        return INT64_MAX;
    const std::unique_ptr<byte_source> source = open_source(path);
    line_reader lines(*source);
    for (int i = 0; i < LINES_TRIED; ++i) {
        const auto line = lines.next();
        if (!line)
            break;
        if (line->starts_with(JOURNAL_START))
            return time_of_entry(lines);
        if (const int64_t time_ms = time_of_line(*line, year); time_ms != NO_TIME)
            return time_ms;
    }
    return NO_TIME;
}

// A file cannot begin after its last change: then its first line is of the year before.
dated_file date(const std::string &path) {
    constexpr int64_t DAY_MS = int64_t{24} * 3600 * 1000;
    dated_file file = {path, year_of(path), NO_TIME};
    file.first_ms = first_time(path, file.year);
    struct stat facts = {};
    if (path == "-" || file.first_ms == NO_TIME || stat(path.c_str(), &facts) != 0 ||
        file.first_ms <= facts.st_mtime * int64_t{1000} + DAY_MS)
        return file;
    --file.year;
    file.first_ms = first_time(path, file.year);
    return file;
}

} // namespace

int32_t year_of(const std::string &path) {
    struct stat facts = {};
    const bool is_file = path != "-" && stat(path.c_str(), &facts) == 0;
    const time_t seconds = is_file ? facts.st_mtime : time(nullptr);
    tm date = {};
    (void)gmtime_r(&seconds, &date);
    return date.tm_year + 1900;
}

log_reader::log_reader(byte_source &input, int32_t year, log_history &into)
    : lines(input), parser(year), history(into) {}

parsed_line log_reader::parse(std::string_view line, bool is_whole) {
    const parsed_line parsed = parser.parse(line);
    has_lists = has_lists || parsed.kind != message_kind::OTHER;
    reports.take(line, is_whole);
    return parsed;
}

const board_history *log_reader::take(std::string_view line) {
    if (line.starts_with(JOURNAL_START))
        is_journal = true;
    if (!is_journal) {
        const parsed_line parsed = parse(line, true);
        const bool is_torn = is_first && parsed.time_ms == NO_TIME; // the log lost its start
        is_first = false;
        return is_torn ? nullptr : history.take(parsed);
    }
    return entry.take(line, lines) ? history.take(entry.line()) : nullptr;
}

// A number at the end of such a line may lack digits. The end of a list can only be whole.
const board_history *log_reader::take_unfinished(std::string_view line) {
    if (is_journal)
        return nullptr;
    parsed_line parsed = parse(line, false);
    if (parsed.kind == message_kind::ITEM)
        parsed.text = "<LI> "; // no line of a list
    return parsed.kind == message_kind::COMPLAINT ? nullptr : history.take(parsed);
}

const board_history *log_reader::read_list(bool is_final) {
    while (const auto line = lines.next()) {
        if (!lines.is_whole() && !is_final) {
            lines.keep_last();
            return nullptr;
        }
        const board_history *board = lines.is_whole() ? take(*line) : take_unfinished(*line);
        if (board != nullptr)
            return board;
    }
    return nullptr;
}

void log_reader::read_all(const std::string &name) {
    (void)read(true, [](const board_history &) { return false; });
    if (is_journal && entry.take("", lines)) // the last entry may lack its blank line
        (void)history.take(entry.line());
    if (!is_journal && !has_lists)
        history.take_reports(name, reports);
}

void read_files(const std::vector<std::string> &paths, log_history &history) {
    std::vector<dated_file> files;
    files.reserve(paths.size());
    for (const std::string &path : paths)
        files.push_back(date(path));
    std::ranges::stable_sort(files, {}, &dated_file::first_ms);
    for (const dated_file &file : files) {
        const std::unique_ptr<byte_source> source = open_source(file.path);
        log_reader(*source, file.year, history)
            .read_all(file.path == "-" ? "standard input" : file.path);
    }
}
