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
    TCGETS,        TCGETS2,
    TCSETS,        TCSETSW,
    TCSETSF,       TCSETS2,
    TCSETSW2,      TCSETSF2,
    TCFLSH,        TCXONC,
    TCSBRK,        TCSBRKP,
    TIOCSBRK,      TIOCCBRK,
    TIOCMGET,      TIOCMSET,
    TIOCMBIS,      TIOCMBIC,
    FIONREAD,      TIOCOUTQ,
    TIOCGICOUNT,   TIOCSTI,
    TIOCMIWAIT,    TIOCGSERIAL,
    TIOCSSERIAL,   line::SYNC_MODE_REQUEST,
    TIOCGSOFTCAR,  TIOCSSOFTCAR,
    TIOCSERGETLSR,
};

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
        report("port %s is set to speed 0 and hangs up; if the program runs under a user-mode "
               "emulator, which turns the board's own speeds into 0, use --emulated",
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

void serial_port::close_if_abandoned() {
    if (descriptors == 0 || !node.is_abandoned())
        return;
    const bool was_killed = sees_all_exits() && !is_terminal_served;
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
    is_terminal_served = has_low_copy = has_one_way = is_visited = false;
    for (; descriptors > 0; descriptors--)
        model.close(line_now());
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

// A device at the other end always raises its lines.
std::string serial_port::possible_instead(const fault &wanted) const {
    const bool is_of_line =
        wanted.kind->id == fault_id::stuck_cts || wanted.kind->id == fault_id::stuck_dcd;
    const bool has_device = joint != nullptr && partner_name.empty();
    return is_of_line && wanted.target == name && has_device && wanted.numbers[0] == 1 ? "level 0"
                                                                                       : "";
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
    if (wanted.target != name || !targets.contains(name) || !possible_instead(wanted).empty())
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
