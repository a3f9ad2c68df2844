#include "simulator/devices/serial/port_transfer_calls.h"

#include "simulator/line/requests.h"
#include "simulator/requests/caller.h"

#include <algorithm>
#include <array>
#include <sys/uio.h>

namespace simulator {

namespace {

constexpr size_t TRANSFER_BYTES = 1 << 20; // of one call; a longer one returns short
constexpr size_t AREAS = 1024;             // of readv and writev: IOV_MAX

// The areas of memory that a read fills or a write takes, one after the other.
struct memory_areas {
    std::vector<iovec> areas;
    bool is_good = true;

    size_t bytes() const {
        size_t sum = 0;
        for (const iovec &area : areas)
            sum += area.iov_len;
        return std::min(sum, TRANSFER_BYTES);
    }

    // Moves `size` bytes with a function of address, position and length. False if an area is not
    // in the caller's memory.
    template <class Move>
    bool move(size_t size, Move move_part) const {
        size_t done = 0;
        for (const iovec &area : areas) {
            const size_t part = std::min(area.iov_len, size - done);
            if (part > 0 && !move_part(reinterpret_cast<uint64_t>(area.iov_base), done, part))
                return false;
            done += part;
        }
        return true;
    }
};

memory_areas areas_of(const request &asked, call_kind kind) {
    memory_areas found;
    const uint64_t address = asked.arguments[1];
    const auto count = static_cast<size_t>(asked.arguments[2]);
    if (kind == call_kind::read || kind == call_kind::write) {
        found.areas = {{reinterpret_cast<void *>(address), count}};
        return found;
    }
    found.areas.resize(std::min(count, AREAS));
    found.is_good = count == 0 || read_memory(asked, address, found.areas.data(),
                                              found.areas.size() * sizeof(iovec));
    return found;
}

struct port_call : stopped_call {
    port_call(const request &of, serial_port &called) : stopped_call(of), port(called) {}

    uint64_t changes() const override {
        return port.model.changes();
    }

protected:
    static verdict verdict_of(const line::outcome &outcome) {
        return outcome.is_waiting ? verdict::blocked(board_time_us(outcome.until))
                                  : verdict::done(outcome.result);
    }

    // O_NONBLOCK matters only if a call would wait, so it is read only then.
    template <class Call, class Attempt>
    line::outcome attempt_as_opened(Call &call, Attempt try_it) {
        line::outcome outcome = try_it();
        if (outcome.is_waiting && !is_mode_known && is_nonblocking(asked, asked.descriptor())) {
            call.nonblocking = true;
            outcome = try_it();
        }
        is_mode_known = true;
        return outcome;
    }

    serial_port &port;

private:
    bool is_mode_known = false;
};

struct read_of_port final : port_call {
    read_of_port(const request &of, serial_port &called, memory_areas filled)
        : port_call(of, called),
          areas(std::move(filled)),
          bytes(areas.bytes()),
          call{.bytes = bytes, .nonblocking = false} {}

    verdict attempt() override {
        const line::outcome outcome =
            attempt_as_opened(call, [&] { return port.model.read(line_now(), call); });
        if (!outcome.is_waiting && outcome.result > 0)
            return verdict::done(deliver(outcome.result));
        return verdict_of(outcome);
    }
    verdict interrupt() override {
        return verdict::done(call.done > 0 ? deliver(static_cast<int64_t>(call.done))
                                           : -RESTARTED_OR_EINTR);
    }

private:
    int64_t deliver(int64_t count) {
        const bool is_delivered =
            areas.move(static_cast<size_t>(count), [&](uint64_t to, size_t from, size_t size) {
                return write_memory(asked, to, &bytes[from], size);
            });
        return is_delivered ? count : -EFAULT;
    }

    memory_areas areas;
    std::vector<uint8_t> bytes;
    line::read_call call;
};

struct write_of_port final : port_call {
    write_of_port(const request &of, serial_port &called, const memory_areas &taken)
        : port_call(of, called), bytes(taken.bytes()), call{.bytes = bytes, .nonblocking = false} {
        is_good = taken.move(
            bytes.size(), [&](uint64_t from, size_t to,
                              size_t size) { return read_memory(asked, from, &bytes[to], size); });
    }

    verdict attempt() override {
        if (!is_good)
            return verdict::done(-EFAULT);
        return verdict_of(
            attempt_as_opened(call, [&] { return port.model.write(line_now(), call); }));
    }
    verdict interrupt() override {
        return verdict::done(call.done > 0 ? static_cast<int64_t>(call.done) : -RESTARTED_OR_EINTR);
    }

private:
    std::vector<uint8_t> bytes;
    line::write_call call;
    bool is_good;
};

struct request_of_port final : port_call {
    request_of_port(const request &of, serial_port &called)
        : port_call(of, called), shape(line::find_request(of.ioctl_number())) {
        call.number = of.ioctl_number();
        call.value = of.ioctl_argument();
        if (shape == nullptr || shape->argument_bytes == 0)
            return;
        call.argument = std::span(memory).first(shape->argument_bytes);
        is_good = !shape->is_read ||
                  read_memory(of, of.ioctl_argument(), memory.data(), shape->argument_bytes);
        if (is_good)
            port.adapt(call, memory);
    }

    verdict attempt() override {
        if (shape == nullptr)
            return {verdict::kind::kernel};
        if (!is_good)
            return verdict::done(-EFAULT);
        const line::outcome outcome = port.model.request(line_now(), call);
        if (!outcome.is_waiting && outcome.result == 0)
            port.apply_to_terminal(call);
        if (!outcome.is_waiting && outcome.result == 0 && shape->is_written &&
            !write_memory(asked, asked.ioctl_argument(), memory.data(), shape->argument_bytes))
            return verdict::done(-EFAULT);
        return verdict_of(outcome);
    }
    verdict interrupt() override {
        const bool is_restarted = port.model.interrupt_request(line_now(), call);
        return verdict::done(is_restarted ? -RESTARTED_OR_EINTR : -EINTR);
    }
    void abandon() override {
        (void)port.model.interrupt_request(line_now(), call);
    }

private:
    const line::request_shape *shape;
    std::array<uint8_t, REQUEST_BYTES> memory{};
    line::request_call call{.number = 0};
    bool is_good = true;
};

// Most ports are opened for both directions, and need no look at the descriptor.
bool is_open_for(const request &asked, const serial_port &port, bool reads) {
    if (!port.was_opened_one_way())
        return true;
    const descriptor_access access = access_of(asked, asked.descriptor());
    return reads ? access.is_readable : access.is_writable;
}

struct refused_call final : stopped_call {
    refused_call(const request &of, int reason) : stopped_call(of), error(reason) {}
    verdict attempt() override {
        return verdict::done(-error);
    }
    uint64_t changes() const override {
        return 0;
    }
    const int error;
};

} // namespace

std::unique_ptr<stopped_call> make_transfer(const request &asked, call_kind kind,
                                            serial_port &port) {
    if (kind == call_kind::request)
        return std::make_unique<request_of_port>(asked, port);
    const bool reads = kind == call_kind::read || kind == call_kind::readv;
    memory_areas areas = areas_of(asked, kind);
    if (!is_open_for(asked, port, reads))
        return std::make_unique<refused_call>(asked, EBADF);
    if (!areas.is_good)
        return std::make_unique<refused_call>(asked, EFAULT);
    if (reads)
        return std::make_unique<read_of_port>(asked, port, std::move(areas));
    return std::make_unique<write_of_port>(asked, port, areas);
}

} // namespace simulator
