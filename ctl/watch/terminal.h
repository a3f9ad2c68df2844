// The terminal of watch: single keys, its own screen, changes of size.

#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <termios.h>
#include <vector>

#include "ctl/watch/frame.h"

enum class key : uint8_t { NONE, UP, DOWN, HOLD, RELEASE, LEAVE };

// Sets the terminal up and restores it when destroyed, also after a signal.
class terminal {
public:
    terminal();
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;
    ~terminal();

    screen_size size() const;
    void show(const std::vector<std::string> &lines) const;
    // Waits for a key or a new size, at most `limit_ms`, 0 or more. NONE unless it is a key.
    key wait_for_key(int64_t limit_ms) const;

private:
    sigset_t signals_before; // the mask
    termios before = {};
    bool has_keys; // standard input is a terminal too; its initializer fills `before`
};

// True if the environment says that the terminal takes UTF-8, see locale(7).
bool takes_utf8();
