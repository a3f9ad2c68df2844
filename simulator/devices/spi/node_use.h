// What programs do with a node in /dev that is an ordinary file and stands for a device. The kernel
// notes each read, write and close (inotify(7)). A write lease then shows whether the close was the
// last one: the kernel grants it only if no program has the file open, see fcntl(2).
//
// With the machine's time a program can open the node again before the board looks; the close then
// passes unnoticed. In the board's own time the board looks before each open.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/time/event_loop.h"

#include <string>

namespace simulator {

class node_use {
public:
    // Creates the node. False after a message.
    bool create(const std::string &wanted_path);
    int node() const {
        return file.get();
    }

    // Readable when something has happened.
    int events() const {
        return happenings.get();
    }
    // Takes what has happened. The first read or write of the node is reported to the operator.
    void take_events();
    // When to look again after a close that may not be complete yet.
    int64_t next_look_us() const {
        return look_due_us;
    }
    // True if the last program has closed the node since the last look.
    bool has_ended();

private:
    bool is_unused() const;

    std::string path;
    unique_fd file;
    unique_fd happenings; // an inotify descriptor
    int64_t look_due_us = NEVER;
    int looks_left = 0;
    bool is_data_reported = false;
};

} // namespace simulator
