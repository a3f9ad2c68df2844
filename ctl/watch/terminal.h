// The terminal of watch: keys as they are pressed, a screen of its own, the size as it changes.

#pragma once

#include <cstdint>
#include <string>
#include <termios.h>
#include <vector>

#include "ctl/watch/frame.h"

enum class key : uint8_t { NONE, UP, DOWN, HOLD, RELEASE, LEAVE, RESIZED };

// Takes the terminal for as long as it lives and gives it back as it was, after a signal too.
class terminal {
public:
    terminal();
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;
    ~terminal();

    screen_size size() const;
    void show(const std::vector<std::string> &lines) const;
    // Waits for a key, a new size, or until the time is up: NONE then.
    key wait_for_key(int64_t limit_ms) const;

private:
    bool has_keys; // standard input is a terminal too
    termios before = {};
};

// The environment says that the terminal takes UTF-8, see locale(7).
bool takes_utf8();
