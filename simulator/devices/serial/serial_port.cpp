#include "simulator/devices/serial/serial_port.h"

#include "simulator/base/text.h"

#include <algorithm>
#include <asm/termbits.h>
#include <asm/termios.h>

namespace simulator {

namespace {

constexpr int64_t DRAIN_LOOK_US = 500;      // between two looks whether the partner has got it
constexpr int64_t DRAIN_LIMIT_US = 200'000; // a drain takes no longer, whatever happens
constexpr int64_t FRAME_LOOK_US = 20'000;   // a reader that flushed its input is noticed this late
constexpr size_t FRAMES_KEPT = 64;          // as a driver's receive ring; further frames are lost
constexpr uint32_t OUTPUT_LINES = TIOCM_RTS | TIOCM_DTR;

constexpr uint32_t STOPPED_IOCTLS[] = {
    TIOCMGET,            // modem lines: a pty has none
    TIOCMSET,            //
    TCSBRK,              // tcdrain(3): returns once the bytes can be read at the far end
    SYNC_CONFIG_REQUEST, // the synchronous ports' mode
};

} // namespace

serial_port::serial_port(std::string port_name)
    : device(std::move(port_name)), synchronous(name.back() == 's') {}

bool serial_port::open_nodes() {
    if (!line.open(("/dev/sp" + name).c_str()))
        return false;
    if (synchronous)
        reader_watch = watch_reader(line);
    return true;
}

void serial_port::add_polls(std::vector<pollfd> &polls) const {
    polls.push_back({line.master.get(), POLLIN, 0});
    if (reader_watch.is_open())
        polls.push_back({reader_watch.get(), POLLIN, 0});
}

void serial_port::ready(const pollfd &event) {
    if (event.fd == line.master.get()) {
        send_written();
        return;
    }
    forget_read(reader_watch);
    hand_over_frames();
}

int64_t serial_port::wake_time_us() const {
    return std::min(frame_look_us, drain_look_us);
}

void serial_port::wake(int64_t time_us) {
    hand_over_frames();
    answer_drains(time_us);
}

std::span<const uint32_t> serial_port::stopped_ioctls() const {
    return STOPPED_IOCTLS;
}

bool serial_port::owns(const struct stat &node) const {
    return line.is_slave(node);
}

// The end of the port. The kernel does to the program what it does when a driver loses its port:
// reads end, writes and requests fail with EIO, poll reports a hang-up.

void serial_port::hang_up() {
    hung_up = true;
    reader_watch.reset();
    line.master.reset();
    frames.clear();
    expected_unread = 0;
}

// False when the port is gone, with this chunk or before it.
bool serial_port::passes_chunk() {
    chunks_passed++;
    const auto ends_port = [&](const fault &each) {
        return chunks_passed >= static_cast<uint32_t>(each.numbers[0]) && each.strikes(now_us());
    };
    if (!hung_up && std::ranges::any_of(hangups, ends_port))
        hang_up();
    return !hung_up;
}

// Sending: from the program to the partner.

void serial_port::send_written() {
    std::vector<uint8_t> chunk = take_written(line);
    if (!chunk.empty())
        send_chunk(chunk);
}

void serial_port::send_chunk(std::vector<uint8_t> &chunk) {
    if (passes_chunk() && faults.pass(chunk) && partner != nullptr)
        partner->take_chunk(chunk);
}

// Receiving: from the partner to the program.

void serial_port::take_chunk(std::span<const uint8_t> chunk) {
    if (!passes_chunk())
        return;
    if (!synchronous) {
        give_bytes(chunk);
        return;
    }
    if (frames.size() < FRAMES_KEPT)
        frames.emplace_back(chunk.begin(), chunk.end());
    hand_over_frames();
}

void serial_port::give_bytes(std::span<const uint8_t> chunk) {
    const size_t before = has_arrived() ? unread_bytes(line) : expected_unread;
    expected_unread = std::min(before + give(line, chunk), TERMINAL_QUEUE_BYTES);
}

void serial_port::hand_over_frames() {
    while (!frames.empty() && nothing_under_way(line) && unread_bytes(line) == 0) {
        give_bytes(frames.front());
        frames.pop_front();
    }
    frame_look_us = frames.empty() ? NEVER : now_us() + FRAME_LOOK_US;
}

// Looking whether nothing is under way waits for what is, so the count is exact after it if the
// queue was empty. When the program reads part of its queue while bytes are under way, the expected
// count is never reached; then the queue counts as complete when the program has next read it
// empty.
bool serial_port::has_arrived() {
    if (hung_up || nothing_under_way(line) || unread_bytes(line) >= expected_unread)
        expected_unread = 0;
    return expected_unread == 0;
}

// Requests.

void serial_port::take_request(const request &asked) {
    if (hung_up) {
        refuse(asked, EIO);
        return;
    }
    switch (asked.ioctl_number()) {
    case TIOCMGET: {
        const uint32_t lines = modem_lines();
        if (write_memory(asked, asked.ioctl_argument(), &lines, sizeof lines))
            answer(asked, 0);
        else
            refuse(asked, EFAULT);
        break;
    }
    case TIOCMSET:
        set_modem_lines(asked);
        break;
    case TCSBRK:
        drain(asked);
        break;
    case SYNC_CONFIG_REQUEST:
        configure_synchronous(asked);
        break;
    default:
        pass_on(asked);
    }
}

void serial_port::drain(const request &asked) {
    send_written();
    drains.push_back({asked, now_us() + DRAIN_LIMIT_US});
    answer_drains(now_us());
}

void serial_port::answer_drains(int64_t time_us) {
    const bool arrived = partner == nullptr || partner->has_arrived();
    std::erase_if(drains, [&](const waiting_drain &waiting) {
        if (!arrived && time_us < waiting.latest_us)
            return false;
        answer(waiting.asked, 0);
        return true;
    });
    drain_look_us = drains.empty() ? NEVER : time_us + DRAIN_LOOK_US;
}

uint32_t serial_port::modem_lines() const {
    const auto breaks_wire = [](const fault &each) { return each.strikes(now_us()); };
    const bool driven = lines_wired && partner != nullptr && partner->drives_rts() &&
                        !std::ranges::any_of(wiring_faults, breaks_wire);
    return outputs | (driven ? TIOCM_CTS | TIOCM_CAR : 0U);
}

bool serial_port::drives_rts() const {
    return (outputs & TIOCM_RTS) != 0;
}

void serial_port::set_modem_lines(const request &asked) {
    uint32_t lines = 0;
    if (!read_memory(asked, asked.ioctl_argument(), &lines, sizeof lines)) {
        refuse(asked, EFAULT);
        return;
    }
    outputs = lines & OUTPUT_LINES;
    answer(asked, 0);
}

void serial_port::configure_synchronous(const request &asked) {
    if (!synchronous)
        refuse(asked, ENOTTY);
    else if (!read_memory(asked, asked.ioctl_argument(), sync_mode.data(), sync_mode.size()))
        refuse(asked, EFAULT);
    else
        answer(asked, 0);
}

// Faults.

// A cable is named by its two ports, in either order, a loop by its one. Empty where there is none.
std::string serial_port::cable_name() const {
    if (partner_name.empty() || partner_name == name)
        return partner_name;
    return std::min(name, partner_name) + "-" + std::max(name, partner_name);
}

bool serial_port::is_on_cable(const std::string &cable) const {
    const auto [one, other] = split_once(cable, '-');
    return !partner_name.empty() && (cable == cable_name() || cable_name() == other + "-" + one ||
                                     (one == other && one == cable_name()));
}

void serial_port::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if ((thing == "port" && partner != nullptr) || thing == "serial node")
        targets.insert(name);
    if (thing == "cable" && !partner_name.empty())
        targets.insert(cable_name());
}

bool serial_port::take_fault(const fault &wanted) {
    if (wanted.kind->id == fault_id::lines) {
        if (is_on_cable(wanted.target))
            wiring_faults.push_back(wanted);
        return is_on_cable(wanted.target);
    }
    if (wanted.target != name)
        return false;
    if (wanted.kind->id == fault_id::hangup)
        hangups.push_back(wanted);
    else if (partner != nullptr && is_fault_of(wanted, "port"))
        faults.add(wanted);
    else
        return false;
    return true;
}

} // namespace simulator
