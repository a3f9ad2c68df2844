// The program under test: started as an unmodified program in a process group of its own, given the
// signals that the operator sends to hk_board, and ended when its time is up. As the first process
// of its namespace the board also reaps what the program leaves behind.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/time/event_loop.h"

#include <sys/types.h>

namespace simulator {

struct program_run final : event_source {
    int64_t run_us = NEVER; // how long it may run
    bool ended = false;
    int status = 0; // its exit status, or 128 + the signal that ended it; STATUS_HANG

    // Starts the program in directory `directory`; `listener` receives the descriptor on which its
    // stopped requests arrive. False after a message.
    bool start(char *const *arguments, const char *directory, unique_fd &listener);

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

private:
    void request_end();
    void pass_on(int number);
    void reap();

    pid_t program = -1;
    unique_fd signals;
    int64_t end_us = NEVER;     // SIGTERM is sent
    int64_t give_up_us = NEVER; // everything is killed
};

} // namespace simulator
