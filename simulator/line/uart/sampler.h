// The receiving half of a UART: turns the levels on the wire into characters.
//
// If both ends agree on speed and framing, the sampler need not look at single bits: it receives
// what was sent, at the end of the last stop bit. If they disagree, if a stop bit is low, or if the
// receiver starts in the middle of a character, the sampler does what the chip does. It waits for a
// falling edge, samples the middle of each bit by its own clock, and takes the samples as start
// bit, data, parity and stop bit. The result is the garbage of a wrong speed, the same in every
// run.
//
// A low stop bit is a framing error; the chip takes it for the next start bit (16550 data sheet). A
// character that is all low is a break: the sampler receives nothing more until the wire is high.
#pragma once

#include "simulator/line/uart/wire.h"

#include <deque>
#include <optional>
#include <vector>

namespace simulator::line {

struct received_character {
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

    // Adds a character on the wire, which may be in the future. Each starts no earlier than the
    // previous one ends.
    void add(const character &passing) {
        wave.push_back(passing);
        low_stops += passing.low_stop ? 1 : 0;
    }
    // The sender holds the wire low, whatever characters pass meanwhile.
    void begin_break(int64_t now) {
        breaks.push_back({now, NEVER});
    }
    void end_break(int64_t now);
    // Takes back the characters that start after `now`.
    std::vector<character> take_back(int64_t now);

    // The next character that is complete by `now`.
    std::optional<received_character> next(int64_t now);

    // The time at which at least `count` characters (1 or more) are received, or all on the wire if
    // there are fewer. NEVER if the wire has none. If the ends disagree, the time of the next
    // character or a moment before it.
    int64_t time_of(size_t count) const;

private:
    bool samples_as_sent(const character &passing) const;
    // False if a later character on the wire may be sampled otherwise than the first.
    bool are_all_alike() const {
        return breaks.empty() && low_stops == 0;
    }
    std::optional<received_character> sample(int64_t now);
    received_character read_bits(int64_t start) const;
    int64_t first_at_level(bool level, int64_t from) const;
    int64_t first_sent_at_level(bool level, int64_t from) const;
    bool level_at(int64_t time) const;
    int64_t stop_sample_ns() const;
    int64_t end_of_wave() const;
    void forget_until(int64_t time);

    struct low_time {
        int64_t from;
        int64_t until; // NEVER while the break lasts
    };

    line_format format;
    std::deque<character> wave;  // characters still needed for samples
    std::deque<low_time> breaks; // likewise
    ptrdiff_t low_stops = 0;     // characters of the wave with a low stop bit
    int64_t looking_from = 0;    // searches for a start bit from this time on
    bool awaiting_high = false;  // after a break
};

} // namespace simulator::line
