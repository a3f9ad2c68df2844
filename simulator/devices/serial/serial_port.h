// One serial port of the board: /dev/spN (asynchronous, characters) or /dev/spNs (synchronous,
// frames). What the program's calls do is the line's business (simulator/line/port.h) and their
// way here port_calls.h's; this is the device: its node, its end of the cable, its faults.
//
// The node is a pseudo-terminal. Its slave's last close is the port's. Bytes that appear on it come
// from a descriptor that the filter does not see; they are sent, and what arrives is given to the
// terminal from then on.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/serial/port_node.h"
#include "simulator/faults/direction_faults.h"
#include "simulator/line/cable.h"
#include "simulator/line/port.h"

#include <optional>
#include <string>
#include <vector>

namespace simulator {

// The board's time as the line has it, in nanoseconds, and the other way round: the first
// microsecond at which that moment has come.
int64_t line_now();
int64_t board_time_us(int64_t line_time);

constexpr size_t REQUEST_BYTES = sizeof(line::tty_settings); // of an argument at most

struct serial_port final : device {
    explicit serial_port(std::string port_name); // "2" or "5s"

    line::port model;
    direction_faults faults;              // of what leaves this port
    direction_faults *arriving = nullptr; // of what reaches it
    port_hangup hangup;                   // counts both
    line::cable *joint = nullptr;         // none: nothing is plugged in
    std::string partner_name;             // of the port at the other end, for the fault "lines"
    bool is_emulated = false;             // --emulated: the program runs under a user-mode emulator

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
    bool take_fault(const fault &wanted) override;

    // The program has got a descriptor of the port, with the flags of open(2), after `model.open`.
    void count_descriptor(int flags);
    // Whether one of the descriptors may be for reading or for writing alone.
    bool was_opened_one_way() const {
        return has_one_way;
    }
    // The program has a copy that the filter does not see: its terminal takes and gives the bytes.
    void serve_terminal();
    bool is_served_by_terminal() const {
        return is_terminal_served;
    }
    // Takes what was written to the terminal, and closes the port if nobody has it open any more.
    void look_at_node();
    // What a user-mode emulator leaves out of the program's requests: a speed without a code on the
    // host arrives as 0, the request for the synchronous mode not at all. With --emulated the port
    // takes the speed and the mode that its node is made for; without it the board says why the
    // port stays silent. `memory` has REQUEST_BYTES with the argument at its beginning.
    void adapt(line::request_call &call, std::span<uint8_t> memory);
    void set_made_for();

    // Whether the program has read all that has arrived.
    bool is_read();

private:
    std::string cable_name() const;
    bool is_on_cable(const std::string &cable) const;
    void take_from_node();
    void send_rest();
    void give_to_node();
    void close_if_abandoned();
    bool goes_away() const;
    bool take_line_fault(const fault &wanted);

    port_node node;
    std::optional<line::cable> open_end; // a cable with one end, if nothing is plugged in
    int descriptors = 0;                 // counted as opened, and not closed
    bool has_one_way = false;
    bool is_terminal_served = false;
    std::vector<uint8_t> unsent; // from the terminal; the line has no room for it yet
    uint64_t seen_changes = 0;
};

} // namespace simulator
