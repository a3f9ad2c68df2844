#include "simulator/devices/spi/spi_memory.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>

namespace simulator {

namespace {

constexpr const char *KEY_PART = "datakey"; // the key's name in faults
constexpr size_t EVENT_BYTES = 4096;
// The kernel reports a close shortly before it is complete: longer than any takes.
constexpr int64_t HOLD_AGAIN_US = 1000;
constexpr int HOLD_TRIES = 5;

// Each memory has its own signal, which reports an opening of its file.
int next_signal() {
    static int number = SIGRTMIN;
    return number++;
}

bool is_of_an_opening(const fault &wanted) {
    return is_fault_of(wanted, "memory node");
}

} // namespace

bool spi_memory::open_nodes() {
    const std::string path = "/dev/" + name;
    node.reset(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!node.is_open())
        return cannot("create", path);
    put(contents);
    if (!faults.empty() && !watch_openings())
        return cannot("watch", path);
    wake(now_us());
    return true;
}

bool spi_memory::watch_openings() {
    opening_signal = next_signal();
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, opening_signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    lease_breaks.reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    closings.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const std::string path = "/dev/" + name;
    return lease_breaks.is_open() &&
           inotify_add_watch(closings.get(), path.c_str(), IN_CLOSE) >= 0 && hold();
}

void spi_memory::add_polls(std::vector<pollfd> &polls) const {
    if (!lease_breaks.is_open())
        return;
    polls.push_back({lease_breaks.get(), POLLIN, 0});
    polls.push_back({closings.get(), POLLIN, 0});
}

void spi_memory::ready(const pollfd &event) {
    if (event.fd == lease_breaks.get()) {
        signalfd_siginfo arrived{};
        while (read(lease_breaks.get(), &arrived, sizeof arrived) == sizeof arrived)
            begin_opening();
        return;
    }
    std::array<char, EVENT_BYTES> events;
    while (read(closings.get(), events.data(), events.size()) > 0) {
    }
    put(present_contents());
    // In the board's own time the close is complete when the board looks.
    hold_tries_left = has_own_clock() ? 1 : HOLD_TRIES;
    if (opening_due_us == NEVER)
        hold_soon();
}

void spi_memory::begin_opening() {
    const int64_t now = now_us();
    openings++;
    opening_due_us = now;
    for (const fault &each : faults)
        if (each.kind->id == fault_id::slow_memory && each.strikes(now))
            opening_due_us += each.numbers[0] * US_PER_MS;
    if (opening_due_us == now)
        finish_opening();
}

void spi_memory::finish_opening() {
    opening_due_us = NEVER;
    put(contents_this_time());
    (void)fcntl(node.get(), F_SETLEASE, F_UNLCK);
}

// The kernel refuses the lease while the program has the file open; the next close tries again. The
// kernel forgets the signal with each released lease.
bool spi_memory::hold() {
    return fcntl(node.get(), F_SETSIG, opening_signal) == 0 &&
           fcntl(node.get(), F_SETLEASE, F_WRLCK) == 0;
}

void spi_memory::hold_soon() {
    hold_tries_left--;
    hold_due_us = !hold() && hold_tries_left > 0 ? now_us() + HOLD_AGAIN_US : NEVER;
}

const std::vector<uint8_t> &spi_memory::present_contents() const {
    return absence.is_present() ? contents_without_key : contents;
}

std::vector<uint8_t> spi_memory::contents_this_time() const {
    const int64_t now = now_us();
    std::vector<uint8_t> now_read = present_contents();
    for (const fault &each : faults) {
        if (each.kind->id == fault_id::failing_memory && each.strikes_nth(now, openings))
            now_read.clear();
        if (each.kind->id != fault_id::weak_bit || openings % 2 != 0)
            continue;
        const auto byte = static_cast<size_t>(each.numbers[0]);
        if (byte < now_read.size() && each.strikes(now))
            now_read[byte] ^= static_cast<uint8_t>(1U << (each.numbers[1] - 1));
    }
    return now_read;
}

// The lease does not affect the board's own descriptor, which is already open.
void spi_memory::put(const std::vector<uint8_t> &wanted) {
    if (pwrite(node.get(), wanted.data(), wanted.size(), 0) !=
            static_cast<ssize_t>(wanted.size()) ||
        ftruncate(node.get(), static_cast<off_t>(wanted.size())) != 0)
        (void)cannot("write", "/dev/" + name);
}

int64_t spi_memory::wake_time_us() const {
    return std::min({opening_due_us, hold_due_us, absence.next_look_us()});
}

void spi_memory::wake(int64_t time_us) {
    if (absence.has_changed(time_us))
        put(present_contents());
    if (opening_due_us <= time_us)
        finish_opening();
    if (hold_due_us <= time_us)
        hold_soon();
}

void spi_memory::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "memory node" && !contents.empty() && name != "datakeypresent")
        targets.insert(name);
    if (thing == "removable part" && is_part_of_key)
        targets.insert(KEY_PART);
}

std::string spi_memory::possible_instead(const fault &wanted) const {
    if (wanted.target != name || wanted.kind->id != fault_id::weak_bit || contents.empty() ||
        static_cast<size_t>(wanted.numbers[0]) < contents.size())
        return "";
    return "bytes 0 to " + std::to_string(contents.size() - 1);
}

bool spi_memory::take_fault(const fault &wanted) {
    std::set<std::string> targets;
    list_targets(wanted.kind->thing, targets);
    if (!targets.contains(wanted.target) || !possible_instead(wanted).empty())
        return false;
    if (is_of_an_opening(wanted))
        faults.push_back(wanted);
    absence.counts = name == KEY_PART;
    return is_of_an_opening(wanted) || absence.take(wanted, fault_id::gone, KEY_PART);
}

} // namespace simulator
