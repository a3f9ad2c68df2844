// Runs the unmodified program under test in its own process group, passes on the signals that the
// operator sends to hk_board, and ends the program when its time is up. The board is the first
// process of its namespace, so it also reaps the program's orphans.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request_filter.h"
#include "simulator/time/event_loop.h"
#include "simulator/world/operator/foreground.h"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace simulator {

struct program_start {
    char *const *arguments; // its name first
    const char *directory;  // where it runs
    filter_rules rules;
};

// In the child between fork and exec: installs the filter and sends its listener to the board. Ends
// the process after a message if that fails.
void hand_over_calls(const filter_rules &rules, int board);

struct program_run final : event_source {
    int64_t run_us = NEVER;         // how long it may run
    foreground *terminal = nullptr; // given to the program if it uses it; null: none
    bool ended = false;
    bool has_signalled = false; // the program, since the board has looked
    int status = 0;             // its exit status, or 128 + the signal that ended it; STATUS_HANG

    // Starts the program. False after a message.
    bool start(const program_start &how);
    pid_t id() const {
        return program;
    }
    // It has been asked to end.
    bool is_ending() const {
        return give_up_us != NEVER;
    }
    // Ends the run: the program computes at that place without an end.
    void end_computing(const std::string &where);
    // The descriptor on which its stopped calls arrive; none if the program could not be started:
    // its exit status then reports that.
    unique_fd listener;

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    void take_signal(int number);
    void request_end();
    void kill_program(int its_status);
    void pass_on(int number);
    void reap();
    void continue_program(int stopped_by);

    pid_t program = -1;
    unique_fd signals;
    bool interrupted = false;   // by Ctrl-C: the next one does not wait
    int64_t end_us = NEVER;     // SIGTERM is sent
    int64_t give_up_us = NEVER; // everything is killed
};

} // namespace simulator
