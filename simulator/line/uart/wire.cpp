#include "simulator/line/uart/wire.h"

#include <bit>

namespace simulator::line {

namespace {

constexpr int64_t TOLERANCE_PERCENT = 5;

int64_t apart(int64_t one, int64_t other) {
    return one > other ? one - other : other - one;
}

} // namespace

bool agree(const line_format &sender, const line_format &receiver) {
    return sender.data_bits == receiver.data_bits && sender.parity == receiver.parity &&
           apart(sender.bps, receiver.bps) * 100 <= int64_t{receiver.bps} * TOLERANCE_PERCENT;
}

bool parity_bit(const line_format &format, uint8_t data) {
    const auto used = static_cast<uint8_t>(data & ((1U << format.data_bits) - 1));
    const bool odd_ones = std::popcount(used) % 2 != 0;
    switch (format.parity) {
    case parity_kind::odd:
        return !odd_ones;
    case parity_kind::even:
        return odd_ones;
    default:
        return format.parity == parity_kind::mark;
    }
}

bool character::bit(int index) const {
    if (index == 0)
        return false;
    if (index <= format.data_bits)
        return (data >> (index - 1) & 1) != 0;
    if (index < bits_before_stop(format))
        return parity_bit(format, data);
    return !low_stop;
}

int64_t character::bit_start(int index) const {
    if (index == 0)
        return start;
    if (index >= bits())
        return end;
    return start + half_bits_ns(format, int64_t{2} * index);
}

} // namespace simulator::line
