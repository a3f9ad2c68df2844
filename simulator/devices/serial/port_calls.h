// The calls of the program on the board's serial ports: from the stopped system call to the line,
// which says what becomes of it, and back.
//
// Opening. The board opens the port's node itself and gives the program the descriptor under a high
// number, or as 0, 1 or 2 where such is free and the lowest: those numbers the filter stops, except
// 2, see stopped_calls.h. Copies that dup(2) and fcntl(2) make get high numbers too. dup2(2) to a
// low number makes a copy whose reads and writes the filter does not see, and standard error is
// one. Its requests are answered as those of any other, but all bytes of the port go through the
// terminal from then on, until the port is closed: at the speed of the line, and with the queues of
// a terminal.
//
// Which port a descriptor is of is asked anew at each call, by what it refers to, and whether it
// blocks too: the flags of a descriptor are the kernel's, as are its inheritance and its last
// close, which the node reports.
#pragma once

#include "simulator/devices/serial/serial_port.h"
#include "simulator/requests/held_calls.h"
#include "simulator/requests/request_channel.h"
#include "simulator/requests/stopped_calls.h"

#include <optional>
#include <vector>

namespace simulator {

struct port_calls final : call_taker, event_source {
    port_calls(std::vector<serial_port *> all_ports, port_descriptors port_numbers)
        : ports(std::move(all_ports)), numbers(port_numbers) {}

    // False after a message. The nodes of the ports are open.
    bool watch_nodes();

    bool has_ports() const {
        return !ports.empty();
    }
    // For the filter.
    std::optional<port_descriptors> rule() const {
        return has_ports() ? std::optional(numbers) : std::nullopt;
    }

    // True if the call is one on a port, and is answered or held then.
    bool take(const request &asked) override;

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;

    // The port whose line answers an open descriptor of the caller; null if it is of none, or if
    // the port's terminal does.
    serial_port *port_at(const request &asked, int descriptor) const;

    held_calls held;

private:
    serial_port *port_of(const struct stat &node) const;
    bool take_open(const request &asked, int directory, uint64_t path, int flags);
    bool take_on_descriptor(const request &asked, call_kind kind);
    bool take_poll(const request &asked, call_kind kind);
    void look_at_nodes() const;
    bool copy(const request &asked, int least, bool close_on_exec);

    const std::vector<serial_port *> ports;
    const port_descriptors numbers;
    unique_fd node_events; // of all ports
};

} // namespace simulator
