// The program's calls on the board's serial ports. Passes each stopped system call to the line and
// the line's result back.
//
// Opening: the board opens the port's node itself and gives the program the descriptor under a high
// number, or as 0, 1 or 2 if the lowest free number is one of those. The filter stops these numbers
// except 2, see stopped_calls.h. Copies by dup(2) and fcntl(2) get high numbers too. The filter
// does not see reads and writes on a copy that dup2(2) makes at a low number, or on standard error.
// The board answers its requests like those of any other descriptor. But the bytes of this copy go
// through the terminal, at the speed of the line and with the queues of a terminal, as do those of
// standard input and output (which a shell makes of such a copy) until the last low copy is closed.
// High descriptors use the line as ever, and what arrives is theirs while one is open.
//
// The last close of a port waits for its output, see last_close.h, unless the terminal serves the
// port, which then sends the rest while it counts as closing.
//
// At each call the board looks up again which port a descriptor refers to and whether it blocks.
// The kernel keeps the flags of a descriptor, its inheritance and its last close, which the node
// reports.
#pragma once

#include "simulator/devices/serial/last_close.h"
#include "simulator/devices/serial/serial_port.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/held_calls.h"
#include "simulator/requests/request_channel.h"
#include "simulator/requests/stopped_calls.h"

#include <map>
#include <optional>
#include <set>
#include <vector>

namespace simulator {

struct port_calls final : call_taker, event_source {
    port_calls(std::vector<serial_port *> all_ports, port_descriptors port_numbers);

    // False after a message. The nodes of the ports are open.
    bool watch_nodes();

    bool has_ports() const {
        return !ports.empty();
    }
    // For the filter.
    std::optional<port_descriptors> rule() const {
        return has_ports() ? std::optional(numbers) : std::nullopt;
    }
    // The numbers of descriptors on which the filter stops calls.
    const port_descriptors numbers;

    // True if the call is on a port: it is then answered or held.
    bool take(const request &asked) override;

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

    // Calls on that listener are made in the board's own time. Exits are stopped too: where no call
    // has closed a port, its process was killed. The scheduler says when descriptors may have
    // changed their meaning or may have been closed. Until then their meaning is remembered. A
    // visitor's calls come on another listener: none of this is true of him.
    void keep_time_of(int listener);
    bool has_own_time(const request &asked) const {
        return timed_listeners.contains(asked.listener);
    }
    void note_changed_descriptors();
    // Notices the last close of a port. `always`: also what a program outside the board's own time
    // has done.
    void look_at_nodes(bool always) const;

    // The port whose line answers an open descriptor of the caller. Null if it is not a port's, or
    // if the port's terminal answers.
    serial_port *port_at(const request &asked, int descriptor) const;

    // Appends the caller's descriptors of which the board knows that they are ports' and that the
    // line serves them in both directions, one of each port. None if descriptors may just have
    // changed.
    void add_known_ports(pid_t caller, std::vector<std::pair<int, serial_port *>> &found) const;

    held_calls held;
    // The ends of polls during which their callers were stopped: the kernel makes each call again.
    std::map<pid_t, int64_t> continued_polls;

private:
    serial_port *port_of(const struct stat &node) const;
    bool is_served_by_line(const serial_port &port, int descriptor) const;
    bool take_open(const request &asked, const opening &wanted);
    bool take_on_descriptor(const request &asked, call_kind kind);
    bool refuse_epoll(const request &asked);
    bool take_poll(const request &asked, call_kind kind);
    bool take_closing(const request &asked, call_kind kind);
    // Null if the descriptor is not a port's.
    serial_port *find_opened(const request &asked, int descriptor) const;
    bool copy(const request &asked, int least, bool close_on_exec);

    const std::vector<serial_port *> ports;
    std::set<int> timed_listeners;
    mutable std::map<std::pair<pid_t, int>, serial_port *> remembered; // by caller and descriptor
    mutable bool may_have_changed = true;
    unique_fd node_events; // of all ports
    bool is_epoll_reported = false;
    last_closes closing;
};

} // namespace simulator
