#include "simulator/devices/led.h"

#include "simulator/base/message.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/mount.h>

namespace simulator {

namespace {

constexpr const char *NODE = "/dev/cpuactive";
constexpr const char *PART = "led";    // its name in faults
constexpr int64_t REFILL_US = 100'000; // much longer than from a read to its write

} // namespace

bool led::open_nodes() {
    if (!appear())
        return false;
    wake(now_us());
    return true;
}

bool led::appear() {
    if (!line.open(NODE))
        return false;
    reader_watch = watch_reader(line);
    offer_state();
    return true;
}

// A program that has the node open gets EIO from then on, as when a driver loses its device.
void led::disappear() {
    reader_watch.reset();
    refill_us = NEVER;
    line = pty{};
    (void)umount2(NODE, MNT_DETACH);
    (void)unlink(NODE);
}

// A read-only LED is a file with the state that cannot be opened for writing. A program that
// already has the LED open keeps its descriptor, but its writes change nothing.
void led::protect() {
    if (line.master.is_open())
        (void)umount2(NODE, MNT_DETACH);
    const unique_fd file(open(NODE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0444));
    if (!file.is_open() || write(file.get(), &state, 1) != 1 ||
        mount(NODE, NODE, nullptr, MS_BIND, nullptr) != 0 ||
        mount(nullptr, NODE, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        (void)cannot("protect", NODE);
}

void led::unprotect() {
    (void)umount2(NODE, MNT_DETACH);
    if (line.master.is_open())
        (void)publish_node(line.slave_path.c_str(), NODE);
    else
        (void)appear();
}

void led::add_polls(std::vector<pollfd> &polls) const {
    if (!line.master.is_open())
        return;
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
    take_states(take_written(line));
}

unique_fd led::open_node(int flags) const {
    return unique_fd(open(line.slave_path.c_str(), flags | O_NOCTTY | O_CLOEXEC));
}

void led::take_states(std::span<const uint8_t> written) {
    for (const uint8_t byte : written)
        set_state(byte != 0 ? 1 : 0);
    offer_state();
}

void led::set_state(uint8_t wanted) {
    if (wanted == state || protection.is_present())
        return;
    if (show_changes)
        board_note("LED %s", wanted != 0 ? "on" : "off");
    state = wanted;
}

int64_t led::wake_time_us() const {
    return std::min({refill_us, absence.next_look_us(), protection.next_look_us()});
}

void led::wake(int64_t time_us) {
    if (refill_us <= time_us) {
        refill_us = NEVER;
        if (nothing_under_way(line))
            offer_state();
    }
    const bool was_gone = absence.is_present();
    const bool was_protected = !was_gone && protection.is_present();
    const bool comes_or_goes = absence.has_changed(time_us);
    const bool locks_or_unlocks = protection.has_changed(time_us);
    if (!comes_or_goes && !locks_or_unlocks)
        return;
    if (was_protected)
        unprotect();
    if (absence.is_present() != was_gone)
        was_gone ? (void)appear() : disappear();
    if (!absence.is_present() && protection.is_present())
        protect();
}

void led::offer_state() {
    take_back(line);
    (void)give(line, std::array{state}); // one byte has room in an emptied queue
}

void led::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "removable part" || thing == "writable part")
        targets.insert(PART);
}

bool led::take_fault(const fault &wanted) {
    return absence.take(wanted, fault_id::gone, PART) ||
           protection.take(wanted, fault_id::readonly, PART);
}

void add_led(device_set &devices) {
    devices.add<led>();
}

bool show_led_changes(device_set &devices, const char *) {
    return devices.find<led>()->show_changes = true; // every board has one
}

} // namespace simulator
