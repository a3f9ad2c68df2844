#include "simulator/line/cable.h"

#include <algorithm>
#include <asm/termios.h>
#include <utility>

namespace simulator::line {

namespace {

void pass(const character &sent, line_faults &faults, sampler &input) {
    passing_character passing{.time = sent.start, .end = sent.end, .data = sent.data};
    faults.strike(passing);
    character arriving = sent;
    arriving.data = passing.data;
    arriving.low_stop = passing.framing_error;
    if (!passing.lost)
        input.add(arriving);
    for (const uint8_t byte : passing.inserted)
        input.add({.start = sent.end, .end = sent.end, .format = sent.format, .data = byte});
}

uint32_t crossed(uint32_t raised) {
    return ((raised & TIOCM_RTS) != 0 ? TIOCM_CTS | TIOCM_CAR : 0U) |
           ((raised & TIOCM_DTR) != 0 ? TIOCM_DSR : 0U);
}

} // namespace

void line_end::advance_cable(int64_t now) {
    if (plugged != nullptr)
        plugged->advance(now);
}

void line_end::change_format(int64_t now, const line_format &wanted) {
    output.set_format(wanted);
    frames.set_bps(wanted.bps);
    if (plugged != nullptr)
        plugged->reload_fifo(now, *this);
}

void line_end::begin_break(int64_t now) {
    if (!std::exchange(is_breaking, true) && plugged != nullptr)
        plugged->pass_break(now, *this);
}

void line_end::end_break(int64_t now) {
    if (std::exchange(is_breaking, false) && plugged != nullptr)
        plugged->pass_break(now, *this);
}

int64_t line_end::cable_event_time() const {
    return plugged != nullptr ? plugged->next_event_time() : NEVER;
}

cable::cable(line_end &only) : ways{{&only, nullptr, &no_faults}} {
    only.plugged = this;
}

cable::cable(line_end &one, line_end &other) : ways{{&one, &other, &no_faults}} {
    if (&one != &other)
        ways.push_back({&other, &one, &no_faults});
    one.plugged = other.plugged = this;
}

cable::~cable() {
    for (const direction &way : ways)
        way.from->plugged = nullptr;
}

void cable::set_faults(const line_end &sender, line_faults &wanted) {
    for (direction &way : ways)
        if (way.from == &sender)
            way.faults = &wanted;
}

int64_t cable::next_event_time() const {
    int64_t next = NEVER;
    for (const direction &way : ways)
        next = std::min({next, way.from->output.next_event_time(),
                         way.from->frames.next_event_time(), way.from->input.next_event_time(),
                         way.from->timer(), way.faults->next_change(advanced_to)});
    return next;
}

// An end may use the cable again while it is settled (a device answers at once). The next round of
// the loop handles what it starts.
void cable::advance(int64_t now) {
    if (advancing)
        return;
    advancing = true;
    now = std::max(advanced_to, now);
    for (int64_t next = next_event_time(); next <= now || has_changed_lines();
         next = next_event_time())
        step(std::max(advanced_to, std::min(now, next)));
    advanced_to = std::max(advanced_to, now);
    advancing = false;
}

// True if an end has raised or lowered lines since the last step.
bool cable::has_changed_lines() const {
    return std::ranges::any_of(
        ways, [](const direction &way) { return way.raised != way.from->raised; });
}

void cable::step(int64_t now) {
    advanced_to = now;
    apply_faults(now);
    for (direction &way : ways) {
        way.from->output.advance(now);
        way.from->frames.advance(now);
        pass_characters(way);
        pass_frames(way);
    }
    for (const direction &way : ways)
        way.from->input.advance(now);
    for (direction &way : ways)
        update_lines(way);
    for (const direction &way : ways) {
        const auto inward =
            std::ranges::find_if(ways, [&](const direction &each) { return each.to == way.from; });
        way.from->settle(now, inward != ways.end() ? inward->lines : 0);
    }
}

void cable::apply_faults(int64_t now) {
    for (const direction &way : ways) {
        if (way.faults == &no_faults)
            continue;
        way.from->output.hold(now, HELD_BY_FAULT, way.faults->stalls(now));
        way.from->frames.hold(now, way.faults->stalls(now));
        way.from->output.set_clock_error(way.faults->clock_error_percent(now));
    }
}

// A synchronous receiver ignores single characters.
bool cable::passes_characters(const direction &way) {
    return way.to != nullptr && !way.to->is_synchronous && !way.from->is_synchronous;
}

void cable::pass_characters(direction &way) {
    std::vector<character> &loaded = way.from->output.loaded;
    const bool is_received = passes_characters(way);
    for (const character &sent : loaded)
        if (is_received)
            pass(sent, *way.faults, way.to->input.wire_end());
    loaded.clear();
}

void cable::pass_frames(direction &way) {
    for (line_frame &sent : way.from->frames.take_sent()) {
        passing_frame passing{.time = sent.end, .bytes = std::move(sent.bytes)};
        way.faults->strike(passing);
        if (way.to == nullptr || !way.to->is_synchronous || passing.lost || passing.damaged)
            continue;
        way.to->take_frame(sent.end, {sent.end, sent.bps, std::move(passing.bytes)});
    }
}

void cable::update_lines(direction &way) const {
    way.raised = way.from->raised;
    const uint32_t driven = way.to != nullptr ? crossed(way.raised) : 0;
    way.lines = way.faults->modem_lines(advanced_to, driven);
}

void cable::reload_fifo(int64_t now, line_end &sender) {
    for (const direction &way : ways)
        if (way.from == &sender && way.to != nullptr)
            sender.output.reload(now, way.to->input.wire_end().take_back(now));
}

// For the faults a break is one character when it begins.
void cable::pass_break(int64_t now, const line_end &sender) {
    for (const direction &way : ways) {
        if (way.from != &sender || !passes_characters(way))
            continue;
        sampler &input = way.to->input.wire_end();
        passing_character passing{.time = now, .end = now, .data = 0};
        if (!sender.is_breaking)
            input.end_break(now);
        else if (way.faults->strike(passing); !passing.lost)
            input.begin_break(now);
    }
}

} // namespace simulator::line
