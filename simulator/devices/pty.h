// A pseudo-terminal as a device of the board: the program opens the slave under the device's name,
// the board holds the master.
//
// A pty moves bytes through a kernel worker in each direction, so a byte that was written is not
// yet one that can be read. Two facts of the kernel's line discipline (n_tty) make that exact: a
// read or poll that finds the queue empty first lets the worker finish what it holds, and only then
// reports "nothing". So reading until nothing is left takes all that was written before, and a poll
// that finds nothing to read means that nothing is under way either.
#pragma once

#include "simulator/base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace simulator {

// Bytes that wait unread in a terminal's queue at most (N_TTY_BUF_SIZE - 1).
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

// All that the program has written and the board has not read, at most 4096 bytes of it.
std::vector<uint8_t> take_written(const pty &line);

// Bytes that the program could read now.
size_t unread_bytes(const pty &line);

// True when it is certain that no byte is under way to the program: there was nothing to read.
// False when there is something to read, whether or not more is under way after it.
bool nothing_under_way(const pty &line);

// A descriptor that becomes ready to read each time the program has read from the line (at times
// also when it has not), until `forget_read` is called. None when the kernel has no more.
unique_fd watch_reader(const pty &line);
void forget_read(const unique_fd &watch);

// Gives bytes to the program. Returns how many the kernel had room for.
size_t give(const pty &line, std::span<const uint8_t> bytes);

// Takes back what the program has not read.
void take_back(const pty &line);

} // namespace simulator
