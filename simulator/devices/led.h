// The heartbeat LED, /dev/cpuactive: reading gives its state as one byte (0 or 1), writing a byte
// sets it. The board knows each change and its time.
//
// One state byte waits in the node to be read. A program that blinks the LED reads the byte and
// writes the new one; if the board replaced a byte the moment it was read, the program could read
// the old state after writing the new one. So a byte that was read is replaced by the write that
// follows it, or, if none follows, a little later.
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
