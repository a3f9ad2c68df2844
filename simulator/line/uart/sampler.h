// The receiving half of a UART: makes characters of the levels on the wire.
//
// Two ends that agree on speed and framing need no look at single bits: what was sent is what is
// heard, at the end of the last stop bit. Where they do not agree, or when the receiver starts in
// the middle of a character, the sampler does what the chip does: it waits for a falling edge,
// looks at the middle of each bit by its own clock, and takes what it sees there as start bit,
// data, parity and stop bit. What comes out is garbage of the kind that a wrong speed gives, the
// same in every run.
//
// A low stop bit is a framing error; the chip takes it for the next start bit (16550 data sheet).
// A character that is low throughout is a break, and nothing more is heard until the wire is high.
#pragma once

#include "simulator/line/uart/wire.h"

#include <deque>
#include <optional>
#include <vector>

namespace simulator::line {

struct heard_character {
    int64_t time = 0;
    uint8_t data = 0;
    bool parity_error = false;
    bool framing_error = false;
    bool is_break = false;
};

class sampler {
public:
    void set_format(const line_format &wanted) {
        format = wanted;
    }

    // A character on the wire; each starts no earlier than the one before it ends. It may lie in
    // the future.
    void add(const character &passing) {
        wave.push_back(passing);
    }
    // Takes back the characters that start after `now`.
    std::vector<character> take_back(int64_t now);

    // The next character that is complete by `now`.
    std::optional<heard_character> next(int64_t now);

    // The time at which at least `count` characters (1 or more) will have been heard, or all that
    // are on the wire if they are fewer. NEVER if nothing is on the wire. Where the ends disagree
    // it is the time of the next character, or a moment before it.
    int64_t time_of(size_t count) const;

private:
    bool hears_as_sent(const character &passing) const;
    std::optional<heard_character> sample(int64_t now);
    heard_character read_bits(int64_t start) const;
    int64_t first_at_level(bool level, int64_t from) const;
    bool level_at(int64_t time) const;
    int64_t stop_sample_ns() const;
    void forget_until(int64_t time);

    line_format format;
    std::deque<character> wave; // what may still be looked at
    int64_t looking_from = 0;   // a start bit is looked for from here on
    bool awaiting_high = false; // after a break
};

} // namespace simulator::line
