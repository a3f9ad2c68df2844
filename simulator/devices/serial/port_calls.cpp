#include "simulator/devices/serial/port_calls.h"

#include "simulator/base/message.h"
#include "simulator/devices/serial/port_poll.h"
#include "simulator/devices/serial/port_transfer_calls.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/notification.h"

#include <algorithm>
#include <array>
#include <asm/ioctls.h>
#include <cerrno>
#include <fcntl.h>
#include <sys/epoll.h>

namespace simulator {

namespace {

// Flags of open(2) that do not open a port's line.
constexpr int NO_LINE_FLAGS = O_PATH | O_DIRECTORY | O_EXCL;
// Flags that the board's own open leaves out.
constexpr int CREATION_FLAGS = O_CREAT | O_TRUNC;

// If the terminal serves the port, the kernel answers reads and writes on a descriptor that is not
// a high one.
bool is_left_to_terminal(const request &asked, call_kind kind) {
    return kind != call_kind::request || asked.ioctl_number() == FIONREAD;
}

// Why a descriptor of a port could not be made, with errno of `install` if there is a number for
// it.
void report_no_descriptor(const request &asked, const port_descriptors &numbers, int number) {
    static bool is_reported = false;
    const bool is_limited = number >= numbers.first && errno == EBADF;
    if ((number >= 0 && !is_limited) || std::exchange(is_reported, true))
        return;
    if (is_limited)
        report("process %d cannot have a port open: its limit on open files is below %d, the "
               "lowest number that the board gives a port",
               static_cast<int>(asked.caller), numbers.first + 1);
    else
        report("process %d has %d descriptors of ports, the most that it can have",
               static_cast<int>(asked.caller), numbers.end - numbers.first);
}

struct open_of_port final : stopped_call {
    open_of_port(const request &of, serial_port &opened, port_descriptors port_numbers, int given)
        : stopped_call(of),
          port(opened),
          numbers(port_numbers),
          flags(given),
          call{.nonblocking = (given & O_NONBLOCK) != 0} {}

    verdict attempt() override {
        const line::outcome opened = port.model.open(line_now(), call);
        if (opened.is_waiting)
            return verdict::blocked(board_time_us(opened.until));
        return opened.result < 0 ? verdict::done(opened.result) : give_descriptor();
    }
    uint64_t changes() const override {
        return port.model.changes();
    }
    verdict interrupt() override {
        abandon();
        return verdict::done(-RESTARTED_OR_EINTR);
    }
    void abandon() override {
        if (call.is_counted)
            port.model.close(line_now());
    }

private:
    verdict give_descriptor() {
        const unique_fd node = port.terminal().open_slave(flags & ~CREATION_FLAGS);
        const int number = free_number(asked, numbers, 0);
        const bool is_given = node.is_open() && number >= 0 &&
                              install(asked, node.get(), number, (flags & O_CLOEXEC) != 0);
        if (!is_given) {
            const int reason = node.is_open() ? EMFILE : errno;
            if (node.is_open())
                report_no_descriptor(asked, numbers, number);
            abandon();
            return verdict::done(-reason);
        }
        port.count_descriptor(flags);
        port.forget_users();
        if (!numbers.has(number))
            port.serve_terminal(number);
        return {verdict::kind::answered};
    }

    serial_port &port;
    const port_descriptors numbers;
    const int flags;
    line::open_call call;
};

} // namespace

serial_port *port_calls::port_of(const struct stat &node) const {
    const auto found = std::ranges::find_if(
        ports, [&](const serial_port *each) { return each->terminal().line.is_slave(node); });
    return found != ports.end() ? *found : nullptr;
}

serial_port *port_calls::find_opened(const request &asked, int descriptor) const {
    const std::pair key(asked.caller, descriptor);
    if (const auto known = remembered.find(key); known != remembered.end())
        return known->second;
    const auto status = status_of(asked, descriptor);
    serial_port *found = status ? port_of(*status) : nullptr;
    if (status && has_own_time(asked))
        remembered.emplace(key, found);
    return found;
}

serial_port *port_calls::port_at(const request &asked, int descriptor) const {
    serial_port *port = numbers.has(descriptor) ? find_opened(asked, descriptor) : nullptr;
    return port != nullptr && is_served_by_line(*port, descriptor) ? port : nullptr;
}

bool port_calls::is_served_by_line(const serial_port &port, int descriptor) const {
    return descriptor >= numbers.first || !port.is_served_by_terminal();
}

void port_calls::add_known_ports(pid_t caller,
                                 std::vector<std::pair<int, serial_port *>> &found) const {
    if (may_have_changed || !continued_polls.empty())
        return;
    for (auto each = remembered.lower_bound({caller, numbers.first});
         each != remembered.end() && each->first.first == caller; ++each) {
        serial_port *port = each->second;
        const auto is_same = [&](const auto &other) { return other.second == port; };
        if (port != nullptr && !port->is_served_by_terminal() && !port->was_opened_one_way() &&
            std::ranges::none_of(found, is_same))
            found.emplace_back(each->first.second, port);
    }
}

port_calls::port_calls(std::vector<serial_port *> all_ports, port_descriptors port_numbers)
    : numbers(port_numbers), ports(std::move(all_ports)) {
    for (serial_port *port : ports)
        port->numbers = numbers;
}

void port_calls::note_changed_descriptors() {
    may_have_changed = true;
    remembered.clear();
    for (serial_port *port : ports)
        if (port->is_served_by_terminal())
            port->forget_users();
}

bool port_calls::watch_nodes() {
    node_events.reset(epoll_create1(EPOLL_CLOEXEC));
    if (!node_events.is_open())
        return cannot("watch", "the ports");
    for (uint32_t i = 0; i < ports.size(); i++)
        if (!ports[i]->terminal().watch(node_events.get(), i))
            return false;
    return true;
}

void port_calls::add_polls(std::vector<pollfd> &polls) const {
    polls.push_back({node_events.get(), POLLIN, 0});
}

void port_calls::ready(const pollfd &) {
    look_at_nodes(true);
}

void port_calls::keep_time_of(int listener) {
    timed_listeners.insert(listener);
    for (serial_port *port : ports)
        port->sees_exits = true;
}

// Handles the last close of a port before a call that follows it.
void port_calls::look_at_nodes(bool always) const {
    if (!timed_listeners.empty() && !always && !std::exchange(may_have_changed, false))
        return;
    std::array<epoll_event, 32> found;
    const int count = epoll_wait(node_events.get(), found.data(), found.size(), 0);
    for (int i = 0; i < count; i++)
        ports[found[static_cast<size_t>(i)].data.u32]->look_at_node();
}

bool port_calls::take(const request &asked) {
    if (const auto opened = opening_of(asked))
        return take_open(asked, *opened);
    const call_kind kind = kind_of(asked.call);
    if (kind != call_kind::poll && !continued_polls.empty())
        continued_polls.erase(asked.caller);
    switch (kind) {
    case call_kind::poll:
    case call_kind::ppoll:
    case call_kind::select:
    case call_kind::pselect:
        return take_poll(asked, kind);
    case call_kind::close:
    case call_kind::close_range:
    case call_kind::end:
    case call_kind::execute:
        return take_closing(asked, kind);
    case call_kind::dup2:
        return take_closing(asked, kind) || take_on_descriptor(asked, kind);
    case call_kind::epoll_ctl:
        return refuse_epoll(asked);
    case call_kind::other:
        return false;
    default:
        return take_on_descriptor(asked, kind);
    }
}

bool port_calls::take_open(const request &asked, const opening &wanted) {
    const auto [directory, path, flags] = wanted;
    if ((flags & NO_LINE_FLAGS) != 0)
        return false;
    const auto found = status_of_path(asked, directory, path);
    serial_port *port = found ? port_of(*found) : nullptr;
    if (port == nullptr)
        return false;
    look_at_nodes(!has_own_time(asked));
    if (!has_own_time(asked))
        port->is_visited = true;
    held.take(std::make_unique<open_of_port>(asked, *port, numbers, flags));
    if (port->is_emulated)
        port->set_made_for();
    return true;
}

// epoll_ctl(2) refuses a file that it cannot watch so. It would watch the terminal, on which
// nothing of the line happens.
bool port_calls::refuse_epoll(const request &asked) {
    const auto watched = static_cast<int>(asked.arguments[2]);
    const serial_port *port =
        asked.arguments[1] == EPOLL_CTL_ADD ? port_at(asked, watched) : nullptr;
    if (port == nullptr)
        return false;
    if (!std::exchange(is_epoll_reported, true))
        report("process %d adds port %s to an epoll, which the board refuses (EPERM): it serves "
               "poll and select",
               static_cast<int>(asked.caller), port->name.c_str());
    refuse(asked, EPERM);
    return true;
}

bool port_calls::take_poll(const request &asked, call_kind kind) {
    auto call = std::make_unique<port_poll>(asked, kind, *this);
    if (!call->has_port() && !(has_own_time(asked) && call->may_wait()))
        return false;
    look_at_nodes(!has_own_time(asked));
    held.take(std::move(call));
    return true;
}

bool port_calls::take_on_descriptor(const request &asked, call_kind kind) {
    serial_port *port = find_opened(asked, asked.descriptor());
    if (port == nullptr)
        return false;
    look_at_nodes(!has_own_time(asked));
    if (port->is_served_by_terminal())
        port->look_at_node();
    if (kind == call_kind::dup || kind == call_kind::fcntl)
        port->forget_users();
    switch (kind) {
    case call_kind::dup:
        return copy(asked, 0, false);
    case call_kind::fcntl:
        return copy(asked, static_cast<int>(asked.arguments[2]),
                    asked.arguments[1] == F_DUPFD_CLOEXEC);
    case call_kind::dup2:
        if (!numbers.has(static_cast<int>(asked.arguments[1])))
            port->serve_terminal(static_cast<int>(asked.arguments[1]));
        return false;
    default:
        if (!is_served_by_line(*port, asked.descriptor()) && is_left_to_terminal(asked, kind))
            return false;
        held.take(make_transfer(asked, kind, *port));
        return true;
    }
}

bool port_calls::take_closing(const request &asked, call_kind kind) {
    auto call = closing.make(asked, kind, ports);
    if (call == nullptr)
        return false;
    held.take(std::move(call));
    return true;
}

bool port_calls::copy(const request &asked, int least, bool close_on_exec) {
    const unique_fd copied = copy_descriptor(asked, asked.descriptor());
    const int number = least >= 0 ? free_number(asked, numbers, least) : -1;
    if (copied.is_open() && number >= 0 && install(asked, copied.get(), number, close_on_exec))
        return true;
    if (least >= 0 && copied.is_open())
        report_no_descriptor(asked, numbers, number);
    refuse(asked, least < 0 ? EINVAL : EMFILE);
    return true;
}

} // namespace simulator
