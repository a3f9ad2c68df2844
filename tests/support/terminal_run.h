// A shell on a terminal of its own, which runs a command and then says how that ended and whether
// the terminal's settings are the ones of before.

#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

class terminal_run {
public:
    explicit terminal_run(const std::string &command, uint16_t columns = 80, uint16_t rows = 24);
    ~terminal_run();
    terminal_run(const terminal_run &) = delete;
    terminal_run &operator=(const terminal_run &) = delete;

    // Waits until the text is on the screen, or was; false at the limit or the end.
    bool wait_for(const std::string &part);
    void type(const std::string &keys) const;
    void resize(uint16_t columns, uint16_t rows) const;

    std::string screen; // everything shown so far
    pid_t shell = -1;

private:
    int terminal = -1;
};
