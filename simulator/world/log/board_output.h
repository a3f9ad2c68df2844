// What the board shows to the operator: the system log and its own notes, line by line with the
// date and time, on standard output and in the file of --log.
//
// Standard output may be a pipe that nobody reads. The board must not wait for it: lines wait in a
// bounded buffer until they can be written. Lines that do not fit are dropped, and the board shows
// their count. In the board's own time no line is dropped: its clock waits for the reader.
#pragma once

#include "simulator/time/event_loop.h"
#include "simulator/world/log/log_file.h"

#include <span>
#include <string>
#include <string_view>

namespace simulator {

struct board_output final : event_source {
    log_file file;       // of --log
    bool quiet = false;  // nothing on standard output
    bool closed = false; // standard output was closed by its reader

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    bool has_unsent() const override;
    void report_unsent() override;
    size_t unread_bytes() const {
        return waiting.size();
    }
    // Half of the buffer waits.
    bool is_reader_late() const;

    // Shows one line; control characters in it become blanks.
    void show(std::string_view text);
    // Puts one line into the log file only.
    void keep(std::string_view text);
    // Sends bytes to standard output unchanged, for an operator whose terminal is the panel. The
    // next log line begins on a new line.
    void show_display(std::span<const uint8_t> bytes);

    // Of all lines so far, also of those that nobody has read (FNV-1a).
    uint64_t hash() const {
        return line_hash;
    }

private:
    void keep_line(const std::string &line);
    void put(std::string_view text);
    void write_waiting();

    bool within_line = false; // the display's last line has no end yet
    std::string waiting;
    size_t lost_lines = 0;
    uint64_t line_hash = 0xCBF29CE484222325;
};

// The board's one output.
extern board_output output;

// Shows a line of the board itself: "YYYY-MM-DD HH:MM:SS.mmm board: text".
void board_note(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace simulator
