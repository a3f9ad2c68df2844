// The node of a serial port: a pseudo-terminal whose slave programs open under the port's name.
//
// The program's calls on it do not reach the terminal, see port_calls.h. The kernel keeps its
// descriptors and their flags, and reports when the last of them is closed. Descriptors that the
// filter does not see (copies with a low number, programs from outside) read and write the terminal
// itself.
#pragma once

#include "simulator/devices/pty.h"

#include <string>

namespace simulator {

struct port_node {
    pty line; // the board keeps no slave open
    std::string path;

    // False after a message.
    bool open(const std::string &wanted_path);

    bool is_present() const {
        return line.master.is_open();
    }
    // Hangs up for good.
    void remove() {
        line.master.reset();
    }
    // A new descriptor of the slave with the flags of open(2); none with errno set.
    unique_fd open_slave(int flags) const;
    // The bytes in the terminal that the program has written and the board has not taken.
    size_t untaken_bytes() const;
    // Those that the program has not read, and their end.
    size_t unread_bytes() const;
    void drop_unread() const;
    // True if no process has the slave open any more.
    bool is_abandoned() const;
    // Adds the node to those that an epoll descriptor watches, under that number. It reports each
    // time that bytes have come, or the last slave was closed.
    bool watch(int epoll, uint32_t number) const;
};

} // namespace simulator
