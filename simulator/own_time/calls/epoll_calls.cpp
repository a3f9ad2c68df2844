#include "simulator/own_time/calls/epoll_calls.h"

#include "simulator/own_time/calls/caller_times.h"
#include "simulator/requests/caller.h"

#include <sys/syscall.h>

namespace simulator {

namespace {

// A set of epoll(7) is readable itself when it has an event: the board polls a copy of it.
struct epoll_wait_call final : stopped_call {
    explicit epoll_wait_call(const request &of)
        : stopped_call(of), set(copy_descriptor(of, of.descriptor())) {
        is_good = set.is_open() && static_cast<int>(of.arguments[2]) > 0;
        read_end();
        read_mask();
    }

    verdict attempt() override {
        if (!is_good || present_events(set.get(), POLLIN) != 0)
            return verdict::passed_on();
        return now_us() >= end_us ? verdict::done(0) : verdict::blocked(end_us);
    }
    uint64_t changes() const override {
        return 0;
    }
    verdict interrupt() override {
        return mask ? verdict::passed_on() : verdict::done(-EINTR);
    }
    std::optional<uint64_t> blocked_signals() const override {
        return mask;
    }
    void add_polls(std::vector<pollfd> &polls) const override {
        polls.push_back({set.get(), POLLIN, 0});
    }

private:
    // A number of milliseconds, or the address of a timespec.
    void read_end() {
        const auto timeout_ms = static_cast<int32_t>(asked.arguments[3]);
        if (asked.call != SYS_epoll_pwait2) {
            end_us = timeout_ms < 0 ? NEVER : now_us() + timeout_ms * US_PER_MS;
        } else if (asked.arguments[3] != 0) {
            const caller_time longest = read_timespec(asked, asked.arguments[3]);
            is_good = is_good && longest.error == 0;
            end_us = now_us() + longest.us;
        }
    }
    void read_mask() {
        uint64_t read = 0;
        const bool takes_mask = asked.call == SYS_epoll_pwait || asked.call == SYS_epoll_pwait2;
        const uint64_t address = takes_mask ? asked.arguments[4] : 0;
        if (address == 0)
            return;
        is_good = read_memory(asked, address, &read, sizeof read) && is_good;
        mask = read;
    }

    const unique_fd set;
    bool is_good; // else the kernel refuses it
    int64_t end_us = NEVER;
    std::optional<uint64_t> mask; // of signals, while the call waits
};

} // namespace

std::unique_ptr<stopped_call> make_epoll_wait(const request &asked) {
    return std::make_unique<epoll_wait_call>(asked);
}

} // namespace simulator
