#include "simulator/devices/panel/front_panel.h"

#include "simulator/world/log/board_output.h"

#include <array>
#include <sys/socket.h>

namespace simulator {

namespace {

constexpr int64_t SCRIPT_LATEST_US = 10'000'000; // for a program that shows nothing first
constexpr int64_t READ_LOOK_US = 10'000;         // between checks whether it has read its keys
constexpr size_t STROKE_BYTES = 64;
constexpr uint32_t PANEL_BPS = 38400;

std::span<const uint8_t> as_bytes(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

} // namespace

front_panel::front_panel(serial_port &panel_port) : port(panel_port) {
    end.set_format(0, {.bps = PANEL_BPS});
    end.on_receive = [this](int64_t, std::span<const uint8_t> bytes) { take_display(bytes); };
}

void front_panel::press(std::span<const uint8_t> bytes) {
    end.send(line_now(), bytes);
}

void front_panel::add_keys(const std::vector<key_step> &keys) {
    script.insert(script.end(), keys.begin(), keys.end());
}

bool front_panel::open_nodes() {
    next_step_us = now_us() + SCRIPT_LATEST_US;
    return true; // the node is the port's
}

void front_panel::add_polls(std::vector<pollfd> &polls) const {
    if (has_keyboard())
        polls.push_back({keyboard, POLLIN, 0});
}

void front_panel::ready(const pollfd &) {
    std::array<uint8_t, STROKE_BYTES> stroke{};
    const ssize_t length = recv(keyboard, stroke.data(), stroke.size(), MSG_DONTWAIT);
    if (length > 0)
        press(std::span(stroke).first(static_cast<size_t>(length)));
}

int64_t front_panel::wake_time_us() const {
    return script.empty() ? NEVER : next_step_us;
}

void front_panel::wake(int64_t time_us) {
    script_begun = true;
    if (!port.is_read()) {
        next_step_us = time_us + READ_LOOK_US;
        return;
    }
    const key_step step = script.front();
    script.pop_front();
    if (!step.bytes.empty())
        press(as_bytes(step.bytes));
    next_step_us = time_us + step.pause_us;
}

void front_panel::take_display(std::span<const uint8_t> bytes) {
    if (!script_begun) {
        script_begun = true;
        next_step_us = now_us();
    }
    if (has_keyboard())
        output.show_display(bytes);
    for (const uint8_t byte : bytes)
        if (display.take(byte))
            show_line();
}

// An operator who has the display does not need the lines in the log as well.
void front_panel::show_line() {
    const std::string line = "panel: " + display.line;
    if (has_keyboard())
        output.keep(line);
    else
        output.show(line);
    display.start_line();
}

} // namespace simulator
