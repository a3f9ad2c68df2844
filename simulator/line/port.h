// One serial port of the board as a program sees it, with driver and line discipline: open, close,
// read, write, poll and the requests of ioctl_tty(2) on /dev/spN and /dev/spNs.
//
// A port knows no descriptor and no clock. Each call gets the time and returns an outcome: it is
// done, with the result of the system call, or it waits. Make a waiting call again, with the same
// call structure, at `outcome::until` or when the value of `changes` is another one. Until then
// call `advance` of the port's cable, at the latest at its `next_event_time`. The structure keeps
// what a call has done so far. An interrupted call returns that, or fails with EINTR if it has done
// nothing.
//
// An asynchronous port sends and receives characters. A synchronous one carries frames, but only
// once its mode has been set with the request of the serial driver and the port is raw. Before
// that, written bytes leave the queue at the speed of the line and are lost.
#pragma once

#include "simulator/line/cable.h"
#include "simulator/line/tty/discipline.h"
#include "simulator/line/tty/output.h"
#include "simulator/line/tty/settings.h"

#include <array>
#include <deque>
#include <span>
#include <vector>

namespace simulator::line {

struct outcome {
    int64_t result = 0; // what the call returns, an error as a negative errno
    bool is_waiting = false;
    int64_t until = NEVER; // a waiting call is due then, unless something changes first
};

// What calls would return that are made now, if they do not wait.
struct at_once {
    short events = 0;        // as poll(2) finds them
    size_t readable = 0;     // bytes: all that one read can return; 0: it may wait, or has more
    size_t room = 0;         // bytes: a write of no more than these takes all
    bool is_drained = false; // tcdrain(3) does not wait
};

struct open_call {
    bool nonblocking;
    bool is_counted = false; // the port counts as open, although the call may still wait
};

struct read_call {
    std::span<uint8_t> bytes;
    bool nonblocking;
    size_t done = 0;
    int64_t since = NEVER; // for VTIME: time of the start, then of the last byte
};

struct write_call {
    std::span<const uint8_t> bytes;
    bool nonblocking;
    size_t done = 0;
    bool is_waiting = false; // for room: it keeps other writers out
};

// How often modem lines have changed while the port was open.
struct line_changes {
    int cts = 0;
    int dsr = 0;
    int dcd = 0;
};

// See requests.h for the numbers and the sizes of the arguments.
struct request_call {
    uint32_t number;
    uint64_t value = 0;               // the argument, if it is a number
    std::span<uint8_t> argument = {}; // what the argument points to, changed in place
    bool is_begun = false;
    int64_t break_end = NEVER;
    line_changes lines_before = {};
};

struct port_kind {
    bool is_synchronous = false; // has the request for the synchronous mode, carries frames
    bool has_modem_lines = true;
};

class port final : public line_end {
public:
    explicit port(port_kind hardware);

    // Raises DTR and RTS. Without CLOCAL a blocking open waits for the carrier. Every open waits
    // while the last close still sends output. EIO if the port is gone.
    outcome open(int64_t now, open_call &call);
    // Call it also for an interrupted open that `is_counted`. The last close waits for the output
    // to leave, for at most the closing_wait of the driver, unless tcflow(3) has stopped it. Then
    // it lowers DTR and RTS (HUPCL) and drops the unread input. Settings stay. close(2) waits while
    // `is_closing`.
    void close(int64_t now);
    // The end of the wait if the last close is now.
    int64_t closing_time(int64_t now) const {
        return closing_wait == NEVER ? NEVER : now + closing_wait;
    }
    bool is_open() const {
        return open_count > 0;
    }
    bool is_closing() const {
        return is_draining;
    }
    // Ends the last close now: what has not left the queue is lost.
    void end_close(int64_t now);
    // True while something has not left the port.
    bool has_output(int64_t now) const {
        return drain_time() > now;
    }

    outcome read(int64_t now, read_call &call);
    // A write that waits for room keeps others out until it is done or `end_write` is called, as
    // it must be for one that is given up (tty_write_lock in drivers/tty/tty_io.c).
    outcome write(int64_t now, write_call &call);
    void end_write(const write_call &call);
    outcome request(int64_t now, request_call &call);
    // A signal ends a waiting request, and with it the break of tcsendbreak(3). Returns true if the
    // kernel makes the call again for a handler with SA_RESTART, false if it always returns EINTR.
    bool interrupt_request(int64_t now, const request_call &call);
    short poll(int64_t now); // events, see poll(2)
    // Copies what a read would return to `to`. Nothing is foreseen of a port that has been hung up,
    // that changes characters on their way, or whose reads give the other end a sign to go on.
    at_once foresee(int64_t now, std::span<uint8_t> to);

    // Changes whenever a waiting call may have become due.
    uint64_t changes() const {
        return change_count;
    }
    // Of the cable that is plugged in.
    int64_t next_event_time() const {
        return cable_event_time();
    }

    // Hangs the port up: reads return the end of the file and all other calls fail with EIO, until
    // all descriptors are closed. With `for_good` it does not come back.
    void hang_up(int64_t now, bool for_good);

    const tty_settings &current_settings() const {
        return settings;
    }
    const receive_counts &counts() const {
        return input.counts;
    }

    // For the cable.
    void settle(int64_t now, uint32_t arriving_lines) override;
    void take_frame(int64_t now, const line_frame &frame) override;
    int64_t timer() const override {
        return closing_until;
    }

private:
    friend struct port_requests;

    bool carries_frames() const;
    bool sees_carrier() const;
    bool has_room_for_poll() const;
    size_t copy_input(std::span<uint8_t> to) const;
    bool has_input(size_t least) const;
    void raise_lines(uint32_t lines);
    void lower_lines(uint32_t lines);
    void change_settings(int64_t now, tty_settings wanted);
    void hold_for_cts(int64_t now);
    void throttle(int64_t now);
    void take_lines(int64_t now, uint32_t arriving_lines);
    void send_flow_control(int64_t now, int character);
    // With the flip buffers, or only what a read would return.
    void flush_input(int64_t now, bool with_flip_buffers);
    void flush_output();
    void finish_close(int64_t now);
    int64_t drain_time() const;
    outcome read_bytes(int64_t now, read_call &call);
    outcome read_frame(read_call &call);
    outcome write_characters(int64_t now, write_call &call);
    outcome write_frame(int64_t now, write_call &call);

    const port_kind kind;
    tty_settings settings = initial_settings();
    output_processing processing{output};
    discipline tty{output, processing};
    std::array<uint8_t, 4> sync_mode{};  // as the request set it
    const write_call *writing = nullptr; // waits for room
    std::deque<std::vector<uint8_t>> received_frames;

    uint32_t outputs = 0; // TIOCM_RTS, TIOCM_DTR, TIOCM_OUT1, TIOCM_OUT2 as set
    uint32_t inputs = 0;  // TIOCM_CTS, TIOCM_CAR, TIOCM_DSR as they arrive
    line_changes changes_seen;
    int open_count = 0;
    int64_t closing_wait = 30 * SECOND; // the kernel's default; NEVER: without an end
    bool is_draining = false;           // the last close waits
    int64_t closing_until = NEVER;
    bool is_throttled = false;
    bool is_hung_up = false;
    bool is_gone = false;

    uint64_t change_count = 0;
    size_t queued_before = 0;
    int64_t drained_before = 0;
};

} // namespace simulator::line
