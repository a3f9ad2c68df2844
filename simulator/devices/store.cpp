#include "simulator/devices/store.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

namespace simulator {

namespace {

constexpr const char *DIRECTORY = "/r0";
constexpr const char *PART = "r0"; // its name in faults
constexpr int64_t RETRY_US = 5000;
constexpr uint64_t KIB = 1024;

struct room {
    uint64_t whole_bytes;
    uint64_t free_bytes;
};

room room_in_store() {
    struct statvfs status {};
    (void)statvfs(DIRECTORY, &status); // the board has mounted it
    return {status.f_blocks * status.f_frsize, status.f_bfree * status.f_frsize};
}

} // namespace

bool store::open_nodes() {
    whole_bytes = room_in_store().whole_bytes;
    protection.counts = false; // it may never succeed
    wake(now_us());
    return true;
}

int64_t store::wake_time_us() const {
    return std::min(
        {fullness.next_look_us(), smallness.next_look_us(), protection.next_look_us(), retry_us});
}

void store::wake(int64_t time_us) {
    const bool size_changes = smallness.has_changed(time_us);
    if (fullness.has_changed(time_us) || size_changes) {
        follow_size();
        retry_us = time_us; // it is writable now
    }
    if (protection.has_changed(time_us) || retry_us <= time_us)
        follow_protection(time_us);
}

// A remount with a new size makes the store writable, and only a writable one can be filled.
void store::follow_size() {
    filling.reset();
    if (is_protected)
        (void)protect(false);
    set_size(smallness.is_present()
                 ? static_cast<uint64_t>(smallness.first_present().numbers[0]) * KIB
                 : whole_bytes);
    if (fullness.is_present())
        fill();
}

// A store cannot be smaller than its contents, see tmpfs(5). It then has no room left.
void store::set_size(uint64_t bytes) {
    const room now = room_in_store();
    const uint64_t wanted = std::max(bytes, now.whole_bytes - now.free_bytes);
    const std::string options = "size=" + std::to_string(wanted);
    if (mount(nullptr, DIRECTORY, nullptr, MS_REMOUNT | MS_NOSUID, options.c_str()) != 0)
        (void)cannot("resize", DIRECTORY);
}

// Makes the store small first, so that filling it takes no memory of the machine.
void store::fill() {
    const room before = room_in_store();
    constexpr uint64_t LEFT_BYTES = 64 * KIB; // at least a page; then the rest is taken
    set_size(before.whole_bytes - before.free_bytes + LEFT_BYTES);
    filling.reset(open(DIRECTORY, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!filling.is_open() ||
        posix_fallocate(filling.get(), 0, static_cast<off_t>(room_in_store().free_bytes)) != 0)
        (void)cannot("fill", DIRECTORY);
}

// The kernel refuses while a file is open for writing.
bool store::protect(bool wanted) {
    const unsigned long flags = MS_REMOUNT | MS_BIND | MS_NOSUID | (wanted ? MS_RDONLY : 0);
    if (mount(nullptr, DIRECTORY, nullptr, flags, nullptr) != 0)
        return false;
    is_protected = wanted;
    return true;
}

void store::follow_protection(int64_t time_us) {
    retry_us = NEVER;
    const bool wanted = protection.is_present();
    if (is_protected == wanted)
        return;
    if (!protect(wanted))
        retry_us = time_us + RETRY_US;
    else if (wanted)
        protection.count_present();
}

void store::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "store" || thing == "writable part")
        targets.insert(PART);
}

bool store::take_fault(const fault &wanted) {
    return fullness.take(wanted, fault_id::full, PART) ||
           smallness.take(wanted, fault_id::size, PART) ||
           protection.take(wanted, fault_id::readonly, PART);
}

void add_store(device_set &devices) {
    devices.add<store>();
}

} // namespace simulator
