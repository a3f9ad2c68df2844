// One serial port of the board: a pty that the program opens as /dev/spN (asynchronous, characters)
// or /dev/spNs (synchronous, frames), its modem lines, and the cable end plugged into it.
//
// What the program writes is taken in chunks (all that is there at once) and handed to the partner
// at the other end of the cable; the port's faults strike there. On a synchronous port a chunk is a
// frame: what one write sent is what one read gets at the far end, so the next frame is handed over
// only when the reader has taken the one before. Writes that follow each other at once would run
// together into one frame; tcdrain(3) between them separates them.
//
// tcdrain returns when what was written can be read at the far end. The program paces itself by it,
// as on the board, where the driver drains at the speed of the line: the simulated line is never
// late for the program, however busy the machine is.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/pty.h"
#include "simulator/devices/serial/line_faults.h"
#include "simulator/devices/serial/line_partner.h"

#include <array>
#include <deque>
#include <span>
#include <string>
#include <vector>

namespace simulator {

// The serial driver's request to set up synchronous mode; its argument is four bytes.
constexpr uint32_t SYNC_CONFIG_REQUEST = 0x40047300;

struct serial_port final : device, line_partner {
    explicit serial_port(std::string port_name); // "2" or "5s"

    bool synchronous;
    line_partner *partner = nullptr; // none: what is sent goes nowhere
    std::string partner_name;        // of the port at the other end, for the fault "lines"
    bool lines_wired = false;        // RTS of the partner drives CTS and DCD

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    std::span<const uint32_t> stopped_ioctls() const override;
    bool owns(const struct stat &node) const override;
    void take_request(const request &asked) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

    // True when the program has taken all that it was given.
    bool program_has_read() const {
        return nothing_under_way(line);
    }

    // A chunk for the program to read.
    void take_chunk(std::span<const uint8_t> chunk) override;
    bool has_arrived() override;
    bool drives_rts() const override;

private:
    struct waiting_drain {
        request asked;
        int64_t latest_us; // answered then in any case: nothing may hang
    };

    void send_written();
    void send_chunk(std::vector<uint8_t> &chunk);
    std::string cable_name() const;
    bool is_on_cable(const std::string &cable) const;
    void give_bytes(std::span<const uint8_t> chunk);
    void hand_over_frames();
    bool passes_chunk();
    void hang_up();
    void drain(const request &asked);
    void answer_drains(int64_t time_us);
    uint32_t modem_lines() const;
    void set_modem_lines(const request &asked);
    void configure_synchronous(const request &asked);

    pty line;
    unique_fd reader_watch;     // synchronous: an epoll descriptor, ready when the program has read
    line_faults faults;         // of what leaves this port
    size_t expected_unread = 0; // bytes that will be readable once all that was given has arrived
    std::deque<std::vector<uint8_t>> frames; // taken, not yet handed over
    int64_t frame_look_us = NEVER;           // when to see whether a frame can be handed over
    std::vector<waiting_drain> drains;
    uint32_t chunks_passed = 0;         // either way
    std::vector<fault> hangups;         // the port goes away with one of these
    std::vector<fault> wiring_faults;   // RTS of the partner does not arrive
    bool hung_up = false;               // it has
    int64_t drain_look_us = NEVER;      // when to see whether the partner has got everything
    uint32_t outputs = 0;               // RTS and DTR as the program set them
    std::array<uint8_t, 4> sync_mode{}; // what SYNC_CONFIG_REQUEST set last
};

} // namespace simulator
