#include "simulator/line/uart/sampler.h"

#include <algorithm>

namespace simulator::line {

std::vector<character> sampler::take_back(int64_t now) {
    const auto first =
        std::ranges::find_if(wave, [&](const character &passing) { return passing.start > now; });
    std::vector<character> taken(first, wave.end());
    wave.erase(first, wave.end());
    low_stops -= std::ranges::count(taken, true, &character::low_stop);
    return taken;
}

void sampler::end_break(int64_t now) {
    if (!breaks.empty() && breaks.back().until == NEVER)
        breaks.back().until = now;
}

// Until a break begins.
bool sampler::samples_as_sent(const character &passing) const {
    return !awaiting_high && !passing.low_stop && passing.start >= looking_from &&
           agree(passing.format, format) && (breaks.empty() || passing.end <= breaks.front().from);
}

std::optional<received_character> sampler::next(int64_t now) {
    if (wave.empty() && breaks.empty())
        return std::nullopt;
    if (wave.empty() || !samples_as_sent(wave.front()))
        return sample(now);
    const character first = wave.front();
    if (first.end > now)
        return std::nullopt;
    wave.pop_front();
    looking_from = first.end;
    const auto used_bits = static_cast<uint8_t>((1U << format.data_bits) - 1);
    return received_character{.time = first.end,
                              .data = static_cast<uint8_t>(first.data & used_bits)};
}

int64_t sampler::time_of(size_t count) const {
    if (wave.empty() && breaks.empty())
        return NEVER;
    if (!wave.empty() && samples_as_sent(wave.front()))
        return wave[are_all_alike() ? std::min(count, wave.size()) - 1 : 0].end;
    const int64_t from = awaiting_high ? first_at_level(true, looking_from) : looking_from;
    if (from == NEVER) // a break without an end yet
        return NEVER;
    const int64_t start = first_at_level(false, from);
    return start == NEVER ? end_of_wave() : start + stop_sample_ns();
}

int64_t sampler::end_of_wave() const {
    const int64_t end = wave.empty() ? 0 : wave.back().end;
    return breaks.empty() ? end : std::max(end, breaks.back().until);
}

// The time from the beginning of the start bit to the middle of the first stop bit.
int64_t sampler::stop_sample_ns() const {
    return half_bits_ns(format, 2 * bits_before_stop(format) + 1);
}

std::optional<received_character> sampler::sample(int64_t now) {
    if (awaiting_high) {
        const int64_t high = first_at_level(true, looking_from);
        if (high > now) {
            forget_until(now);
            return std::nullopt;
        }
        awaiting_high = false;
        looking_from = high;
    }
    for (;;) {
        const int64_t start = first_at_level(false, looking_from);
        if (start == NEVER || start + stop_sample_ns() > now) {
            forget_until(std::min(start, now));
            return std::nullopt;
        }
        const int64_t middle = start + half_bits_ns(format, 1);
        if (!level_at(middle)) {
            const received_character received = read_bits(start);
            awaiting_high = received.is_break;
            looking_from = received.framing_error && !received.is_break
                               ? received.time - half_bits_ns(format, 1)
                               : received.time;
            forget_until(looking_from);
            return received;
        }
        looking_from = middle; // too short for a start bit
    }
}

received_character sampler::read_bits(int64_t start) const {
    received_character received{.time = start + stop_sample_ns()};
    const auto sampled = [&](int bit) {
        return level_at(start + half_bits_ns(format, 2 * bit + 1));
    };
    for (int bit = 0; bit < format.data_bits; bit++)
        received.data |= static_cast<uint8_t>(sampled(1 + bit) ? 1U << bit : 0U);
    const bool has_parity = format.parity != parity_kind::none;
    const bool parity_level = has_parity && sampled(1 + format.data_bits);
    received.parity_error = has_parity && parity_level != parity_bit(format, received.data);
    received.framing_error = !sampled(bits_before_stop(format));
    received.is_break = received.framing_error && received.data == 0 && !parity_level;
    return received;
}

// The first time, from `from` on, at which the wire has the level. Between characters it is high.
int64_t sampler::first_at_level(bool level, int64_t from) const {
    int64_t at = first_sent_at_level(level, from);
    for (const low_time &each : breaks)
        if (!level && from < each.until)
            at = std::min(at, std::max(from, each.from));
        else if (level && each.from <= at && at < each.until)
            at = each.until == NEVER ? NEVER : first_sent_at_level(true, each.until);
    return at;
}

// Without the breaks.
int64_t sampler::first_sent_at_level(bool level, int64_t from) const {
    int64_t at = from;
    for (const character &passing : wave) {
        if (passing.end <= at || passing.start == passing.end)
            continue;
        if (level && at < passing.start)
            return at;
        for (int bit = 0; bit < passing.bits(); bit++)
            if (passing.bit(bit) == level && passing.bit_start(bit + 1) > at)
                return std::max(at, passing.bit_start(bit));
        at = passing.end;
    }
    return level ? at : NEVER;
}

bool sampler::level_at(int64_t time) const {
    for (const low_time &each : breaks)
        if (each.from <= time && time < each.until)
            return false;
    for (const character &passing : wave) {
        if (time < passing.start)
            return true;
        for (int bit = 0; time < passing.end && bit < passing.bits(); bit++)
            if (time < passing.bit_start(bit + 1))
                return passing.bit(bit);
    }
    return true;
}

void sampler::forget_until(int64_t time) {
    while (!wave.empty() && wave.front().end <= time) {
        low_stops -= wave.front().low_stop ? 1 : 0;
        wave.pop_front();
    }
    while (!breaks.empty() && breaks.front().until <= time)
        breaks.pop_front();
}

} // namespace simulator::line
