// A pseudo-terminal as a device of the board: the program opens the slave under the device's name,
// the board holds the master.
//
// A kernel worker moves the bytes of a pty in each direction, so a written byte cannot be read at
// once. The kernel's line discipline (n_tty) helps: a read or poll that finds the queue empty first
// lets the worker finish, and only then reports that there is nothing. So reading until nothing is
// left returns all that was written before. If a poll finds nothing to read, no byte is on its way
// either.
#pragma once

#include "simulator/base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace simulator {

// The most bytes that can wait in a terminal's queue (N_TTY_BUF_SIZE - 1).
constexpr size_t TERMINAL_QUEUE_BYTES = 4095;

struct pty {
    unique_fd master; // non-blocking
    unique_fd slave; // kept open, so that the line does not hang up when the program closes its end
    std::string slave_path;
    struct stat slave_node {};

    // Opens a pair in raw mode and shows it as `node` ("/dev/sp2"). False after a message.
    bool open(const char *node);

    // By file system and inode: the operator's terminal is on another file system of
    // pseudo-terminals and may have the same device number.
    bool is_slave(const struct stat &node) const {
        return node.st_dev == slave_node.st_dev && node.st_ino == slave_node.st_ino;
    }
};

// Reads what the program has written, at most 4096 bytes.
std::vector<uint8_t> take_written(const pty &line);

// Bytes that the program could read now.
size_t unread_bytes(const pty &line);

// True if no byte is on its way to the program and the program has nothing to read. False if it has
// something to read.
bool nothing_under_way(const pty &line);

// A descriptor that becomes readable each time the program has read from the line (sometimes also
// when it has not) and stays so until `forget_read`. None if the kernel has no more descriptors.
unique_fd watch_reader(const pty &line);
void forget_read(const unique_fd &watch);

// Sends bytes to the program. Returns how many the kernel had room for.
size_t give(const pty &line, std::span<const uint8_t> bytes);

// Removes what the program has not read.
void take_back(const pty &line);

} // namespace simulator
