#include "simulator/devices/serial/last_close.h"

#include "simulator/devices/serial/node_users.h"
#include "simulator/requests/caller.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <linux/close_range.h>
#include <optional>
#include <sys/syscall.h>
#include <utility>
#include <vector>

namespace simulator {

namespace {

// The descriptors of its process that a call closes.
struct closed_range {
    int first;
    int last;
    bool only_on_execute = false; // those with O_CLOEXEC
};

constexpr closed_range ALL = {0, INT_MAX};

int descriptor_of(uint64_t argument) {
    return static_cast<int>(std::min<uint64_t>(static_cast<uint32_t>(argument), INT_MAX));
}

std::optional<closed_range> range_closed_by(const request &asked, call_kind kind) {
    const auto &words = asked.arguments;
    const int first = descriptor_of(words[0]);
    const int second = descriptor_of(words[1]);
    switch (kind) {
    case call_kind::close:
        return closed_range{first, first};
    case call_kind::dup2:
        if (first == second || !status_of(asked, first))
            return std::nullopt; // does nothing, or fails
        return closed_range{second, second};
    case call_kind::close_range:
        if ((words[2] & CLOSE_RANGE_CLOEXEC) != 0)
            return std::nullopt;
        return closed_range{first, second};
    case call_kind::end:
        if (asked.call == SYS_exit && has_other_threads(asked))
            return std::nullopt;
        return ALL;
    case call_kind::execute:
        return closed_range{ALL.first, ALL.last, true};
    default:
        return std::nullopt;
    }
}

bool closes(const request &asked, const closed_range &range, int descriptor) {
    return descriptor >= range.first && descriptor <= range.last &&
           (!range.only_on_execute || is_closed_on_execute(asked, descriptor));
}

// True if the call closes at least one descriptor of the port, and no process has another one.
// Looks at all of them, which takes some milliseconds.
bool closes_last(const request &asked, const closed_range &range, const serial_port &port,
                 const std::set<pid_t> &ending) {
    const pid_t caller = process_of(asked);
    const std::vector<int> own = descriptors_of(caller, port.terminal());
    const auto is_closed = [&](int descriptor) { return closes(asked, range, descriptor); };
    if (own.empty() || !std::ranges::all_of(own, is_closed))
        return false;
    return std::ranges::all_of(all_processes(), [&](pid_t process) {
        return process == caller || ending.contains(process) ||
               descriptors_of(process, port.terminal()).empty();
    });
}

// The line closes at once, and sends the rest while the call waits; the kernel then closes the
// descriptors. Only execve(2) may still fail, so before it the port stays open.
struct last_close final : stopped_call {
    last_close(const request &of, call_kind by, std::vector<serial_port *> closed)
        : stopped_call(of), kind(by), ports(std::move(closed)) {
        for (serial_port *port : ports) {
            latest = std::max(latest, port->model.closing_time(line_now()));
            if (kind != call_kind::execute)
                port->close();
        }
    }

    verdict attempt() override {
        const auto waits = [&](const serial_port *port) {
            return kind == call_kind::execute
                       ? line_now() < latest && port->model.has_output(line_now())
                       : port->model.is_closing();
        };
        return std::ranges::any_of(ports, waits) ? verdict::blocked(board_time_us(latest))
                                                 : verdict::passed_on();
    }
    uint64_t changes() const override {
        uint64_t sum = 0;
        for (const serial_port *port : ports)
            sum += port->model.changes();
        return sum;
    }
    verdict interrupt() override {
        abandon();
        return verdict::passed_on();
    }
    void abandon() override {
        for (serial_port *port : ports)
            port->model.end_close(line_now());
    }
    std::optional<uint64_t> blocked_signals() const override {
        return kind == call_kind::end ? std::optional(~uint64_t{0}) : std::nullopt;
    }

private:
    const call_kind kind;
    const std::vector<serial_port *> ports;
    int64_t latest = 0;
};

} // namespace

std::unique_ptr<stopped_call> last_closes::make(const request &asked, call_kind kind,
                                                std::span<serial_port *const> ports) {
    std::vector<serial_port *> closed;
    std::ranges::copy_if(ports, std::back_inserter(closed),
                         [](serial_port *port) { return port->close_waits(); });
    if (const auto range = closed.empty() ? std::nullopt : range_closed_by(asked, kind); range)
        std::erase_if(closed, [&](const serial_port *port) {
            return !closes_last(asked, *range, *port, ending);
        });
    else
        closed.clear();
    std::erase_if(ending, [](pid_t process) { return kill(process, 0) != 0; });
    if (kind == call_kind::end)
        ending.insert(process_of(asked));
    if (closed.empty())
        return nullptr;
    return std::make_unique<last_close>(asked, kind, std::move(closed));
}

} // namespace simulator
