// poll(2), ppoll(2), select(2) and pselect(2) with at least one port among the descriptors. The
// line reports the events of ports. The board copies other descriptors and polls them in its event
// loop. The kernel answers a set without a port.
//
// When a signal comes that the mask of ppoll or pselect lets through, the kernel carries out the
// call: it applies the mask, runs the handler and returns EINTR.
#pragma once

#include "simulator/devices/serial/serial_port.h"
#include "simulator/requests/held_calls.h"
#include "simulator/requests/stopped_calls.h"

#include <array>
#include <vector>

namespace simulator {

struct port_calls;

struct port_poll final : stopped_call {
    port_poll(const request &of, call_kind call, port_calls &all_ports);

    bool has_port() const;
    // False for a call that the kernel would return from at once, without a port.
    bool may_wait() const {
        return is_good && (is_continued || deadline_us > now_us());
    }

    verdict attempt() override;
    uint64_t changes() const override;
    verdict interrupt() override;
    std::optional<uint64_t> blocked_signals() const override {
        return mask;
    }
    void add_polls(std::vector<pollfd> &polls) const override;

private:
    struct entry {
        int descriptor;
        short wanted;
        serial_port *port; // null: another descriptor, polled through the copy
        unique_fd copy;
        short found = 0;
    };

    bool is_select() const {
        return kind == call_kind::select || kind == call_kind::pselect;
    }
    void read_poll_set();
    void read_select_set();
    void find_ports();
    void read_deadline();
    bool has_good_parts(const std::array<int64_t, 2> &time) const;
    void read_mask();
    void look();
    int64_t give_poll_set();
    int64_t give_select_set();
    void give_time_left();
    int64_t give_result();

    const call_kind kind;
    port_calls &ports;
    std::vector<entry> entries;
    bool is_good = true; // else the kernel refuses it
    int64_t deadline_us = NEVER;
    bool is_continued = false;    // the kernel makes it again after a stop
    std::optional<uint64_t> mask; // of signals, while the call waits
};

} // namespace simulator
