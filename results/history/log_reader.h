// Reads log files and gives every line of hk_stress to the history.

#pragma once

#include <string>
#include <vector>

#include "results/history/log_history.h"
#include "results/reading/lines/journal_export.h"
#include "results/reading/report_reader.h"

// One file, or a part of it that has arrived.
class log_reader {
public:
    // `year` is that of the first line, for times without one.
    log_reader(byte_source &input, int32_t year, log_history &into);

    // Reads to the end of the source. A line without its line break is complete only if `is_final`.
    // Returns true if `stop` returned true after a list, and the rest is not read.
    template <typename Stop>
    bool read(bool is_final, Stop stop) {
        while (const board_history *board = read_list(is_final))
            if (stop(*board))
                return true;
        return false;
    }
    // Reads all. `name` is that of the file: if it holds no list, its status reports are a board of
    // this name.
    void read_all(const std::string &name = "standard input");

    // Goes on after the end: the source has grown.
    void resume() {
        lines.resume();
    }

private:
    // Reads up to the end of the next list; null at the end of the source.
    const board_history *read_list(bool is_final);
    // Also keeps the line if it is of a status report.
    parsed_line parse(std::string_view line, bool is_whole);
    const board_history *take(std::string_view line);
    const board_history *take_unfinished(std::string_view line);

    line_reader lines;
    line_parser parser;
    journal_entry entry;
    log_history &history;
    bool is_journal = false;
    bool is_first = true; // no line has been read
    bool has_lists = false;
    report_reader reports;
};

// Reads the files in the order of their first line, whatever their order here. Throws
// unreadable_input.
void read_files(const std::vector<std::string> &paths, log_history &history);

// The year in which the file's first line was written, as far as its modification time says.
int32_t year_of(const std::string &path);
