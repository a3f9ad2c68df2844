// The board's ports by device name, and the end of a test process that cannot open its port.

#pragma once

#include <cstdint>

constexpr int PORT_NAME_MAX = 32; // bytes, the closing zero included

struct port_row {
    char name[PORT_NAME_MAX];
    uint8_t labels; // non-zero: an open writes labels for the modem lines to the screen
    int fd = -1;    // of the last open; the caller closes it
};

// Opens the port of this name read-write, after it has written the port's labels, if any, to the
// screen. Ends the process with a message if the name is unknown or open(2) fails.
//
// An asynchronous port needs no more: the driver has no status block to clear and reports no
// waiting bytes to drain.
port_row &open_port_by_name(const char *name);

// Shows the message on the screen and ends the process with exit status 0.
[[noreturn]] void end_with_message(const char *message);
