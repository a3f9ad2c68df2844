// A shell on its own terminal. It runs a command, then prints its exit status and whether the
// terminal has its former settings again.

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

    // Waits until the text is or was on the screen; false at the limit or the end.
    bool wait_for(const std::string &part);
    void type(const std::string &keys) const;
    void resize(uint16_t columns, uint16_t rows) const;
    // Whether a read of the terminal returns at once though there is no key.
    bool never_waits_for_a_key() const;

    std::string screen; // everything shown so far
    pid_t shell = -1;

private:
    int terminal = -1;
};
