// The characters on one wire of a cable, each with the times at which its start bit begins and its
// last stop bit ends. A character gives the level of the wire at any time between them, so a
// receiver can sample it with its own clock.
//
// All times of the line are nanoseconds on the clock of the board. The line never reads a clock.
#pragma once

#include <cstdint>

namespace simulator::line {

constexpr int64_t NEVER = INT64_MAX;
constexpr int64_t MILLISECOND = 1'000'000;
constexpr int64_t SECOND = 1'000'000'000;

enum class parity_kind : uint8_t { none, odd, even, mark, space };

// Speed and framing of one end.
struct line_format {
    uint32_t bps = 9600;
    int data_bits = 8; // 5 to 8
    parity_kind parity = parity_kind::none;
    int stop_half_bits = 2; // one stop bit; 3 for one and a half, 4 for two

    bool operator==(const line_format &) const = default;
};

// The duration of a number of half bits, rounded to the nearest nanosecond.
constexpr int64_t half_bits_ns(const line_format &format, int64_t half_bits) {
    return (half_bits * SECOND / 2 + format.bps / 2) / format.bps;
}

// The start bit, data bits and parity bit.
constexpr int bits_before_stop(const line_format &format) {
    return 1 + format.data_bits + (format.parity == parity_kind::none ? 0 : 1);
}

constexpr int64_t character_ns(const line_format &format) {
    return half_bits_ns(format, 2 * bits_before_stop(format) + format.stop_half_bits);
}

// True if a receiver with the format `receiver` correctly reads what `sender` sends. A UART samples
// the middle of each bit and synchronises again on each character, so it tolerates speeds that
// differ by 5 %. A receiver ignores the number of stop bits.
bool agree(const line_format &sender, const line_format &receiver);

// The parity bit of the data.
bool parity_bit(const line_format &format, uint8_t data);

struct character {
    int64_t start = 0;
    int64_t end = 0;
    line_format format;
    uint8_t data = 0;
    bool low_stop = false; // a fault: the stop bit is low

    int64_t bit_ns() const {
        return half_bits_ns(format, 2);
    }
    // The number of bits in the character; the stop bits count as one.
    int bits() const {
        return bits_before_stop(format) + 1;
    }
    // The level of bit 0 (the start bit) to bits() - 1 (the stop bits).
    bool bit(int index) const;
    // When that bit begins; the end of the character for bits().
    int64_t bit_start(int index) const;
};

} // namespace simulator::line
