#include "simulator/devices/led.h"

#include "simulator/world/log/board_output.h"

#include <array>

namespace simulator {

namespace {

constexpr int64_t REFILL_US = 100'000; // between a read and the write that goes with it: far less

} // namespace

bool led::open_nodes() {
    if (!line.open("/dev/cpuactive"))
        return false;
    reader_watch = watch_reader(line);
    offer_state();
    return true;
}

void led::add_polls(std::vector<pollfd> &polls) const {
    polls.push_back({line.master.get(), POLLIN, 0});
    if (reader_watch.is_open())
        polls.push_back({reader_watch.get(), POLLIN, 0});
}

void led::ready(const pollfd &event) {
    if (event.fd == reader_watch.get()) {
        forget_read(reader_watch);
        refill_us = now_us() + REFILL_US;
        return;
    }
    for (const uint8_t byte : take_written(line)) {
        const uint8_t wanted = byte != 0 ? 1 : 0;
        if (wanted != state && show_changes)
            board_note("LED %s", wanted != 0 ? "on" : "off");
        state = wanted;
    }
    offer_state();
}

int64_t led::wake_time_us() const {
    return refill_us;
}

void led::wake(int64_t) {
    refill_us = NEVER;
    if (nothing_under_way(line))
        offer_state();
}

void led::offer_state() {
    take_back(line);
    (void)give(line, std::array{state}); // one byte has room in an emptied queue
}

void add_led(device_set &devices) {
    devices.add<led>();
}

bool show_led_changes(device_set &devices, const char *) {
    return devices.find<led>()->show_changes = true; // every board has one
}

} // namespace simulator
