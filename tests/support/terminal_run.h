// A shell on a terminal of its own, which runs a command and then says how that ended
// and whether the terminal's settings are the ones of before.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

class terminal_run {
public:
    explicit terminal_run(const std::string &command);
    ~terminal_run();
    terminal_run(const terminal_run &) = delete;
    terminal_run &operator=(const terminal_run &) = delete;

    bool wait_for(const std::string &part);
    void type(const std::string &keys) const {
        EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    std::string screen; // everything shown so far
    pid_t shell = -1;

private:
    int terminal = -1;
};
