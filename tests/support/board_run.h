// One run of a program on the simulated board, as a test case sees it: the program's standard
// output and error, the lines of the system log as they come, and the exit status. The end of the
// case kills the board.
//
// Nothing here sleeps for a guessed time: every wait ends with the event or with a generous limit.

#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "runtime/unique_fd.h"

// A line of the system log or of the board itself (its ident is "board").
struct log_line {
    int64_t time_ms; // of the day
    std::string ident;
    std::string text;
};

// The numbers of one item of a results list.
struct result_line {
    int kind;
    std::string name; // "sp2 loop", "bbsram file_copy"
    std::array<int64_t, 2> counts;
    std::array<int64_t, 3> errors;
    std::array<std::array<int64_t, 2>, 5> samples; // newest first
};

// None if the text is not an item of a results list.
std::optional<result_line> parse_result_line(const std::string &text);

// The command that runs a program of the project: through the emulator if the tests are for another
// processor.
std::vector<std::string> own_program(const char *path, const std::vector<std::string> &arguments);

// The first child of a process, 0 if it has none.
pid_t child_of(pid_t parent);

// How long a case waits for an event before it fails: a minute, more on a slow machine.
// HK_WAIT_SECONDS in the environment replaces it, for runs that look for failures.
std::chrono::seconds wait_limit();

class board_run {
public:
    // The board has its own time unless the options say otherwise. A case with "--clock real" says
    // why; CONTRIBUTING.md lists them.

    // Runs hk_stress, under the emulator if the tests are for another processor.
    static board_run stress(std::vector<std::string> board_options,
                            std::vector<std::string> arguments);
    // Runs any program of the machine.
    static board_run program(std::vector<std::string> board_options,
                             std::vector<std::string> command);

    board_run(const board_run &) = delete;
    board_run &operator=(const board_run &) = delete;
    ~board_run();

    // Waits until `holds` returns true; false if the board ended first or the limit passed. Checks
    // `holds` after each output and log line.
    bool wait_until(const std::function<bool()> &holds);

    // Waits for a log line after the last one that a call returned, whose text contains `part`.
    // None at the limit or the end of the run.
    std::optional<log_line> wait_for_log(std::string_view part);
    bool wait_for_output(std::string_view part);

    // Waits until hk_stress takes signals: its first alarm has switched the LED off again.
    bool wait_until_running();
    // Requests a results list (SIGUSR1) and returns its items. Empty if none came.
    std::vector<std::string> request_list();
    // The items of a whole list that begins at or after log line `from`, which is then moved past
    // it. None if there is no such list yet.
    std::optional<std::vector<std::string>> next_list(size_t &from) const;

    // Sends a signal to hk_board, which passes most of them on.
    void signal(int number);
    // Waits for the end of the run. Returns its exit status; -1 if it did not end within the limit.
    int finish();
    // Ends the run as an operator would: SIGTERM, then finish.
    int stop();

    pid_t board_id() const {
        return board;
    }

    // What the board itself logged, a line each, without its command and its hash.
    std::string notes() const;

    std::string output; // of the program, standard output
    std::string errors; // of the program and of the board, standard error
    std::vector<log_line> log;

private:
    using time_point = std::chrono::steady_clock::time_point;

    explicit board_run(std::vector<std::string> arguments);
    bool read_more(time_point latest); // false at the end of the run or at that time
    void read_log();

    pid_t board = -1;
    unique_fd output_pipe;
    unique_fd error_pipe;
    unique_fd log_file;
    unique_fd log_watch; // ready when the log file has grown
    std::string log_path;
    std::string unfinished_log;
    size_t log_passed = 0;
};
