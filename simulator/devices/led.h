// The heartbeat LED, /dev/cpuactive: a read returns its state as one byte (0 or 1), a write of one
// byte sets it. The board sees each change and its time.
//
// The node always holds one state byte to read. A program that blinks the LED reads the byte and
// writes the new one. If the board replaced a byte at once, the program could read the old state
// after its write. So the board replaces a byte at the write after the read, or a little later if
// there is no write. In the board's own time the board answers the calls, see led_calls.h.
#pragma once

#include "simulator/devices/device_set.h"
#include "simulator/devices/presence_faults.h"
#include "simulator/devices/pty.h"

namespace simulator {

struct led final : device {
    bool show_changes = false; // in the log

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

    // For calls that the board answers.
    bool is_node(const struct stat &node) const {
        return line.is_slave(node);
    }
    unique_fd open_node(int flags) const; // none with errno set
    uint8_t present_state() const {
        return state;
    }
    void take_states(std::span<const uint8_t> written);

private:
    bool appear();
    void disappear();
    void protect();
    void unprotect();
    void set_state(uint8_t wanted);
    void offer_state();

    pty line;
    uint8_t state = 0;
    unique_fd reader_watch;
    int64_t refill_us = NEVER;
    presence_faults absence;
    presence_faults protection; // the LED takes no writes
};

void add_led(device_set &devices);
bool show_led_changes(device_set &devices, const char *); // --show-led

} // namespace simulator
