// The board's ports by device name, and the way a test process ends that cannot have its port.

#pragma once

#include <cstdint>

constexpr int PORT_NAME_MAX = 32; // bytes, the closing zero included

struct port_row {
    char name[PORT_NAME_MAX];
    uint8_t labels; // non-zero: the screen gets labels for the modem lines when it is opened
    int fd = -1;    // of the last open; the opener's to close
};

// Opens the port of that name read-write. The labels, if the port has them, go to the screen first.
// An unknown name or a failed open(2) ends the process with a message.
//
// That is all: the driver keeps no status block that an asynchronous port would have to clear, and
// never reports waiting bytes that would have to be drained.
port_row &open_port_by_name(const char *name);

// Shows the message on the screen and ends the process with exit status 0.
[[noreturn]] void end_with_message(const char *message);
