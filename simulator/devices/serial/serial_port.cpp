#include "simulator/devices/serial/serial_port.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/line/requests.h"

#include <algorithm>
#include <array>
#include <asm/ioctls.h>
#include <cstring>
#include <fcntl.h>
#include <utility>

namespace simulator {

namespace {

constexpr uint32_t STOPPED_PORT_IOCTLS[] = {
    TCGETS,      TCGETS2,
    TCSETS,      TCSETSW,
    TCSETSF,     TCSETS2,
    TCSETSW2,    TCSETSF2,
    TCFLSH,      TCXONC,
    TCSBRK,      TCSBRKP,
    TIOCSBRK,    TIOCCBRK,
    TIOCMGET,    TIOCMSET,
    TIOCMBIS,    TIOCMBIC,
    FIONREAD,    TIOCOUTQ,
    TIOCGICOUNT, TIOCSTI,
    TIOCMIWAIT,  TIOCGSERIAL,
    TIOCSSERIAL, line::SYNC_MODE_REQUEST,
};

constexpr size_t GIVEN_BYTES = 4096;
constexpr int64_t USERS_LOOK_US = 200'000; // in the machine's time, in which nothing reports exits
constexpr uint32_t FASTEST_BPS =
    153600; // of an asynchronous port's speeds; without a code on a host

// The requests that change the settings, and their variants with the speeds as numbers.
struct setting_request {
    uint32_t number;
    uint32_t with_numbers;
};
constexpr setting_request SETTING_REQUESTS[] = {
    {TCSETS, TCSETS2}, {TCSETSW, TCSETSW2}, {TCSETSF, TCSETSF2}};

void report_speed_0(const std::string &name) {
    static bool is_reported = false;
    if (!is_reported)
        report("port %s is set to speed 0 and hangs up; a user-mode emulator turns the board's "
               "own speeds into 0: use --emulated with it",
               name.c_str());
    is_reported = true;
}

constexpr const char *PORT_WITHOUT_LINES = "5s";

line::port_kind kind_of_port(const std::string &name) {
    return {.is_synchronous = name.back() == 's', .has_modem_lines = name != PORT_WITHOUT_LINES};
}

} // namespace

int64_t line_now() {
    return now_us() * NS_PER_US;
}

int64_t board_time_us(int64_t line_time) {
    return line_time == line::NEVER ? NEVER : (line_time + NS_PER_US - 1) / NS_PER_US;
}

serial_port::serial_port(std::string port_name)
    : device(std::move(port_name)), model(kind_of_port(name)) {}

bool serial_port::open_nodes() {
    if (joint == nullptr)
        joint = &open_end.emplace(model);
    return node.open("/dev/sp" + name);
}

int64_t serial_port::wake_time_us() const {
    const bool is_busy = goes_away() || (is_terminal_served && seen_changes != model.changes());
    const bool looks_again = !sees_exits && is_terminal_served && users && users->has_high;
    const int64_t look_us = looks_again ? users_seen_us + USERS_LOOK_US : NEVER;
    return is_busy ? 0 : std::min(look_us, board_time_us(model.next_event_time()));
}

void serial_port::wake(int64_t) {
    joint->advance(line_now());
    if (goes_away()) {
        for (const fault &each : hangup.rows)
            each.count_strike();
        model.hang_up(line_now(), true);
        node.remove(); // the terminal hangs up too
    }
    if (is_terminal_served && node.is_present()) {
        look_at_node();
        give_to_node();
    }
    seen_changes = model.changes();
}

// What was written still leaves the port after the program has ended. The board's own time stands
// still then.
bool serial_port::has_unsent() const {
    return model.is_closing() && !has_own_clock();
}

std::span<const uint32_t> serial_port::stopped_ioctls() const {
    return STOPPED_PORT_IOCTLS;
}

// The node.

void serial_port::count_descriptor(int flags) {
    descriptors++;
    has_one_way = has_one_way || (flags & O_ACCMODE) != O_RDWR;
}

void serial_port::serve_terminal(int descriptor) {
    if (!std::exchange(is_low_copy_reported, true))
        report("port %s is copied to descriptor %d: its reads and writes there go through a "
               "terminal, whose queues hold more than those of the line, and which does not keep "
               "frames apart",
               name.c_str(), descriptor);
    is_terminal_served = has_low_copy = true;
    users = {.has_high = true, .has_low = true}; // the kernel is about to make the copy
    users_seen_us = now_us();
}

void serial_port::forget_users() {
    users.reset();
    seen_changes = model.changes() - 1; // what waits may go to the terminal now
}

// What the terminal has is left to its readers before the line takes over.
void serial_port::look_at_users() {
    const bool is_fresh = sees_exits || now_us() < users_seen_us + USERS_LOOK_US;
    if (users && is_fresh)
        return;
    users = users_of(node, numbers);
    users_seen_us = now_us();
    if (!has_low_copy || users->has_low || !unsent.empty() || node.unread_bytes() > 0)
        return;
    is_terminal_served = has_low_copy = false;
}

void serial_port::apply_to_terminal(line::request_call &answered) {
    if (!is_terminal_served || !node.is_present())
        return;
    const uint32_t number = answered.number;
    const bool flushes = number == TCFLSH;
    if (number == TCSETSF || number == TCSETSF2 || (flushes && answered.value != TCOFLUSH))
        node.drop_unread();
    if (flushes && answered.value != TCIFLUSH) {
        unsent.clear();
        while (!take_written(node.line).empty()) {
        }
    }
    if (number == TIOCOUTQ)
        count_unsent(answered.argument);
}

// Adds what has not reached the queue of the line.
void serial_port::count_unsent(std::span<uint8_t> count) const {
    int32_t queued = 0;
    memcpy(&queued, count.data(), sizeof queued);
    queued += static_cast<int32_t>(node.untaken_bytes() + unsent.size());
    memcpy(count.data(), &queued, sizeof queued);
}

void serial_port::look_at_node() {
    if (!node.is_present())
        return;
    take_from_node();
    close_if_abandoned();
    if (is_terminal_served && has_low_copy)
        look_at_users();
}

// Takes as much as the line has room for. The rest waits in the terminal, and so does its writer.
void serial_port::take_from_node() {
    send_rest();
    while (unsent.empty()) {
        unsent = take_written(node.line);
        if (unsent.empty())
            return;
        if (descriptors == 0) { // a program from outside
            line::open_call call{.nonblocking = true};
            (void)model.open(line_now(), call);
            count_descriptor(O_RDWR);
        }
        is_terminal_served = true;
        send_rest();
    }
}

void serial_port::send_rest() {
    if (unsent.empty())
        return;
    line::write_call call{.bytes = unsent, .nonblocking = true};
    const int64_t sent = model.write(line_now(), call).result;
    if (sent > 0)
        unsent.erase(unsent.begin(), unsent.begin() + static_cast<ptrdiff_t>(sent));
    else if (sent != -EAGAIN)
        unsent.clear();
}

void serial_port::give_to_node() {
    std::array<uint8_t, GIVEN_BYTES> bytes;
    while (!model.is_closing() && !is_read()) {
        look_at_users();
        if (!is_terminal_served || users->has_high)
            return;
        line::read_call call{.bytes = bytes, .nonblocking = true};
        const int64_t count = model.read(line_now(), call).result;
        if (count <= 0)
            return;
        (void)give(node.line, std::span(bytes).first(static_cast<size_t>(count)));
    }
}

void serial_port::close_if_abandoned() {
    if (descriptors == 0 || !node.is_abandoned())
        return;
    const bool was_killed = sees_exits && !is_terminal_served;
    close();
    if (was_killed) // its output is lost
        model.end_close(line_now());
}

bool serial_port::close_waits() {
    if (descriptors == 0 || is_terminal_served)
        return false;
    joint->advance(line_now());
    return model.has_output(line_now());
}

void serial_port::close() {
    is_terminal_served = has_low_copy = has_one_way = false;
    for (; descriptors > 0; descriptors--)
        model.close(line_now());
}

bool serial_port::is_read() {
    std::array<uint8_t, sizeof(int32_t)> memory{};
    line::request_call call{.number = FIONREAD, .argument = memory};
    (void)model.request(line_now(), call);
    return std::ranges::all_of(memory, [](uint8_t byte) { return byte == 0; });
}

// Emulated programs.

void serial_port::adapt(line::request_call &call, std::span<uint8_t> memory) {
    const auto row = std::ranges::find_if(SETTING_REQUESTS, [&](const setting_request &each) {
        return call.number == each.number || call.number == each.with_numbers;
    });
    line::tty_settings wanted{};
    memcpy(&wanted, memory.data(), sizeof wanted);
    if (row == std::end(SETTING_REQUESTS) || (wanted.c_cflag & CBAUD) != B0)
        return;
    if (!is_emulated) {
        report_speed_0(name);
        return;
    }
    wanted.c_cflag |= BOTHER;
    wanted.c_ospeed = wanted.c_ispeed = is_synchronous() ? line::FRAME_BPS : FASTEST_BPS;
    memcpy(memory.data(), &wanted, sizeof wanted);
    call.number = row->with_numbers;
    call.argument = memory;
}

void serial_port::set_made_for() {
    std::array<uint8_t, sizeof line::SYNC_MODE> mode;
    std::ranges::copy(line::SYNC_MODE, mode.begin());
    line::request_call call{.number = line::SYNC_MODE_REQUEST, .argument = mode};
    (void)model.request(line_now(), call);
}

// Faults.

// A cable is named by its two ports, in either order, a loop by its one port. Empty if there is
// none.
std::string serial_port::cable_name() const {
    if (partner_name.empty() || partner_name == name)
        return partner_name;
    return std::min(name, partner_name) + "-" + std::max(name, partner_name);
}

// The lines of one end drive those of the other, so both ends need some.
bool serial_port::joins_modem_lines() const {
    return !partner_name.empty() && name != PORT_WITHOUT_LINES &&
           partner_name != PORT_WITHOUT_LINES;
}

bool serial_port::is_on_cable(const std::string &cable) const {
    const auto [one, other] = split_once(cable, '-');
    return !partner_name.empty() && (cable == cable_name() || cable_name() == other + "-" + one);
}

// Of a port with nothing connected no chunk is seen.
void serial_port::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    const bool has_kind = thing == (is_synchronous() ? "sync line" : "async line");
    const bool has_lines = thing == "modem line" && name != PORT_WITHOUT_LINES;
    const bool is_wired = thing == "serial node" || thing == "port" || thing == "line";
    if (joint != nullptr && (is_wired || has_kind || has_lines))
        targets.insert(name);
    if (thing == "cable" && joins_modem_lines())
        targets.insert(cable_name());
}

bool serial_port::take_fault(const fault &wanted) {
    if (wanted.kind->id == fault_id::lines) {
        const bool is_own = joins_modem_lines() && is_on_cable(wanted.target);
        if (is_own)
            faults.add(wanted);
        return is_own;
    }
    std::set<std::string> targets;
    list_targets(wanted.kind->thing, targets);
    if (wanted.target != name || !targets.contains(name))
        return false;
    if (wanted.kind->id == fault_id::hangup)
        hangup.rows.push_back(wanted);
    else
        (direction_faults::leaves(wanted) ? faults : *arriving).add(wanted);
    return true;
}

bool serial_port::goes_away() const {
    return hangup.can_come() && node.is_present() && hangup.is_due(now_us());
}

} // namespace simulator
