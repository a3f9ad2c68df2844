// What passes along one wire of a cable: characters, each with the moments at which its start bit
// begins and its last stop bit ends. A character knows the level of the wire at any moment between
// them, so that a receiver can sample it with a clock of its own.
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

// The time of a number of half bits, rounded to the nearest nanosecond.
constexpr int64_t half_bits_ns(const line_format &format, int64_t half_bits) {
    return (half_bits * SECOND / 2 + format.bps / 2) / format.bps;
}

// Start bit, data bits and parity bit: what comes before the stop bits.
constexpr int bits_before_stop(const line_format &format) {
    return 1 + format.data_bits + (format.parity == parity_kind::none ? 0 : 1);
}

constexpr int64_t character_ns(const line_format &format) {
    return half_bits_ns(format, 2 * bits_before_stop(format) + format.stop_half_bits);
}

// Whether a receiver set to `receiver` reads what `sender` sends as it is. A UART samples a
// character in the middle of its bits and starts anew with each character, so it bears speeds that
// are 5 % apart. The number of stop bits does not matter to a receiver.
bool agree(const line_format &sender, const line_format &receiver);

// The parity bit that belongs to the data.
bool parity_bit(const line_format &format, uint8_t data);

struct character {
    int64_t start = 0;
    int64_t end = 0;
    line_format format;
    uint8_t data = 0;
    bool low_stop = false; // a fault: the stop bit is low
    bool is_break = false; // the wire is low from start to end

    int64_t bit_ns() const {
        return half_bits_ns(format, 2);
    }
    // How many bits of the format the character has, the stop bits as one.
    int bits() const {
        return bits_before_stop(format) + 1;
    }
    // The level of bit 0 (the start bit) to bits() - 1 (the stop bits).
    bool bit(int index) const;
    // When that bit begins; the end of the character for bits().
    int64_t bit_start(int index) const;
};

} // namespace simulator::line
