// A cable joins two ends: two ports, a port and a device, or a port and itself (a loop plug). A
// port with nothing connected has a cable with one end.
//
// The two ends of a cable influence each other (flow control, modem lines, echo), so the cable
// advances both together and handles their events in order. Different cables are independent.
// `next_event_time` is the next moment at which anything changes; `advance` handles all events that
// are due. Every call on a port first advances its cable to the time of the call.
//
// Wiring: TXD and RXD are crossed, RTS of one end drives CTS and DCD of the other, DTR drives DSR.
#pragma once

#include "simulator/line/faults.h"
#include "simulator/line/frames.h"
#include "simulator/line/uart/receiver.h"
#include "simulator/line/uart/transmitter.h"

#include <vector>

namespace simulator::line {

class cable;

// One end of a cable: a port or a device.
class line_end {
public:
    explicit line_end(bool carries_frames) : is_synchronous(carries_frames) {}
    line_end(const line_end &) = delete;
    line_end &operator=(const line_end &) = delete;
    virtual ~line_end() = default;

    const bool is_synchronous;
    transmitter output;
    receiver input;
    frame_sender frames;
    uint32_t raised = 0; // the lines that this end raises: TIOCM_RTS, TIOCM_DTR

    // Called whenever the cable has advanced: takes what `input` has delivered, and the modem lines
    // that arrive.
    virtual void settle(int64_t now, uint32_t lines) = 0;
    // Called when an undamaged frame has arrived.
    virtual void take_frame(int64_t now, const line_frame &frame) = 0;
    // The time at which the end itself needs `settle`.
    virtual int64_t timer() const {
        return NEVER;
    }

protected:
    // Of the cable that is plugged in, if any.
    void advance_cable(int64_t now);
    // Sets a new format, also for characters in the FIFO that have not begun.
    void change_format(int64_t now, const line_format &wanted);
    // A break: the wire is low at once and until the end of the break. The chip goes on shifting
    // characters out meanwhile; those are lost (16550 data sheet, set break control).
    void begin_break(int64_t now);
    void end_break(int64_t now);
    int64_t cable_event_time() const;

private:
    friend class cable;
    cable *plugged = nullptr;
    bool is_breaking = false;
};

class cable {
public:
    explicit cable(line_end &only);
    // Twice the same end makes a loop plug.
    cable(line_end &one, line_end &other);
    cable(const cable &) = delete;
    cable &operator=(const cable &) = delete;
    ~cable();

    // Sets the faults of what leaves `sender`; they must exist as long as the cable.
    void set_faults(const line_end &sender, line_faults &wanted);

    void advance(int64_t now);
    int64_t next_event_time() const;

private:
    friend class line_end;

    struct direction {
        line_end *from;
        line_end *to; // none: nothing is plugged in
        line_faults *faults;
        uint32_t raised = 0; // by `from` at the last update
        uint32_t lines = 0;  // that arrive
    };

    bool has_changed_lines() const;
    void step(int64_t now);
    void apply_faults(int64_t now);
    static bool passes_characters(const direction &way);
    static void pass_characters(direction &way);
    static void pass_frames(direction &way);
    void update_lines(direction &way) const;
    void reload_fifo(int64_t now, line_end &sender);
    void pass_break(int64_t now, const line_end &sender);

    line_faults no_faults;
    std::vector<direction> ways;
    int64_t advanced_to = 0;
    bool advancing = false;
};

} // namespace simulator::line
