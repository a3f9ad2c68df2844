// One serial port of the board: /dev/spN (asynchronous, characters) or /dev/spNs (synchronous,
// frames). The line (simulator/line/port.h) carries out the program's calls, and port_calls.h
// brings them there. This is the device: its node, its end of the cable, its faults.
//
// The node is a pseudo-terminal. The last close of its slave closes the port. Bytes that appear on
// it come from a descriptor that the filter does not see, a low one. The port sends them, and from
// then on gives what arrives to the terminal, but only while no process has a high descriptor of
// the port: that one reads and writes the line itself. The line serves all descriptors again when
// the last low copy is closed.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/serial/node_users.h"
#include "simulator/devices/serial/port_node.h"
#include "simulator/faults/direction_faults.h"
#include "simulator/line/cable.h"
#include "simulator/line/port.h"
#include "simulator/line/requests.h"

#include <optional>
#include <string>
#include <vector>

namespace simulator {

// The board's time in nanoseconds, for the line; and the first microsecond of the board at or after
// a time of the line.
int64_t line_now();
int64_t board_time_us(int64_t line_time);

using line::REQUEST_BYTES;

struct serial_port final : device {
    explicit serial_port(std::string port_name); // "2" or "5s"

    line::port model;
    direction_faults faults;              // of what leaves this port
    direction_faults *arriving = nullptr; // of what reaches it
    port_hangup hangup;                   // counts both
    line::cable *joint = nullptr;         // none: nothing is plugged in
    std::string partner_name;             // of the port at the other end, for the fault "lines"
    bool is_emulated = false;             // --emulated: the program runs under a user-mode emulator
    port_descriptors numbers{};           // on which the filter stops calls
    bool sees_exits = false; // in the board's own time: what closes without a call was killed
    bool is_visited = false; // a program has opened it whose exits are not seen: a visitor's

    bool is_synchronous() const {
        return name.back() == 's';
    }
    const port_node &terminal() const {
        return node;
    }

    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    bool has_unsent() const override;
    std::span<const uint32_t> stopped_ioctls() const override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    std::string possible_instead(const fault &wanted) const override;
    bool take_fault(const fault &wanted) override;

    // Call it after `model.open`, when the program has got a descriptor of the port with those
    // flags of open(2).
    void count_descriptor(int flags);
    // True if one of the descriptors may be for reading only or for writing only.
    bool was_opened_one_way() const {
        return has_one_way;
    }
    // The program gets a copy under a number that the filter does not see: the terminal carries the
    // copy's bytes. The first such copy is reported.
    void serve_terminal(int descriptor);
    // True if the terminal carries the bytes of descriptors 0, 1 and of low ones.
    bool is_served_by_terminal() const {
        return is_terminal_served;
    }
    // The program may have opened, copied or closed descriptors of the port.
    void forget_users();
    // What a request that the line has answered means for the bytes in the terminal.
    void apply_to_terminal(line::request_call &answered);
    // Takes what was written to the terminal, and closes the port if no process has it open any
    // more.
    void look_at_node();
    // True if the port is open and its last close would have to wait for output. The terminal's
    // does not wait.
    bool close_waits();
    // The last descriptor is about to be closed by a call.
    void close();
    // Corrects requests that a user-mode emulator changes: a speed without a code on the host
    // arrives as 0, and the request for the synchronous mode does not arrive. With --emulated the
    // port takes the speed and mode of its node. Without it the board reports why the port stays
    // silent. `memory` has REQUEST_BYTES and begins with the argument.
    void adapt(line::request_call &call, std::span<uint8_t> memory);
    void set_made_for();

    // True if the program has read all that has arrived.
    bool is_read();

private:
    std::string cable_name() const;
    bool is_on_cable(const std::string &cable) const;
    bool joins_modem_lines() const;
    bool sees_all_exits() const {
        return sees_exits && !is_visited;
    }
    void take_from_node();
    void send_rest();
    void give_to_node();
    void look_at_users();
    void count_unsent(std::span<uint8_t> count) const;
    void close_if_abandoned();
    bool goes_away() const;

    port_node node;
    std::optional<line::cable> open_end; // a cable with one end, if nothing is plugged in
    int descriptors = 0;                 // opened and not closed
    bool has_one_way = false;
    bool is_terminal_served = false;
    bool has_low_copy = false; // the reason for that: the program was seen to make one
    bool is_low_copy_reported = false;
    std::vector<uint8_t> unsent;     // from the terminal; the line has no room for it yet
    std::optional<node_users> users; // as last seen; none: they may have changed
    int64_t users_seen_us = 0;
    uint64_t seen_changes = 0;
};

} // namespace simulator
