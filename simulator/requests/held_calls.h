// Calls that wait for something on the board: they are stopped in the kernel and tried again
// whenever that may have come.
//
// The kernel lets no signal but a deadly one interrupt a call that the board has taken, so that
// nothing is done twice. The board itself therefore looks whether a signal waits for the caller,
// every 20 ms, and ends the call as the kernel would: with what it has done so far, else with
// ERESTARTSYS, which the kernel makes EINTR or a second call of (see SA_RESTART in sigaction(2)).
#pragma once

#include "simulator/requests/request.h"
#include "simulator/time/event_loop.h"

#include <memory>
#include <optional>
#include <vector>

namespace simulator {

// Error numbers between a call and the kernel's signal handling; no program sees them.
constexpr int RESTARTED_OR_EINTR = 512;        // ERESTARTSYS: as SA_RESTART says
constexpr int RESTARTED_WITHOUT_HANDLER = 514; // ERESTARTNOHAND: EINTR for a handler, as poll(2)

// What came of an attempt to carry out a call.
struct verdict {
    enum class kind {
        done,     // the call returns `value`, an error as a negative number
        kernel,   // the kernel carries it out
        answered, // it has been answered
        blocked,  // it waits until `until_us`, or until something changes
    };
    kind what;
    int64_t value = 0;
    int64_t until_us = NEVER;

    static verdict done(int64_t value) {
        return {kind::done, value};
    }
    static verdict passed_on() {
        return {kind::kernel};
    }
    static verdict blocked(int64_t until_us) {
        return {kind::blocked, 0, until_us};
    }
};

struct stopped_call {
    explicit stopped_call(const request &of) : asked(of) {}
    virtual ~stopped_call() = default;

    virtual verdict attempt() = 0;
    // Another value whenever an attempt may have another result than the last one.
    virtual uint64_t changes() const = 0;
    // What becomes of the call if it is interrupted now.
    virtual verdict interrupt() {
        return verdict::done(-RESTARTED_OR_EINTR);
    }
    // The signals that do not interrupt it, if they are not those that its caller blocks.
    virtual std::optional<uint64_t> blocked_signals() const {
        return std::nullopt;
    }
    // The caller has been killed.
    virtual void abandon() {}
    // Appends what may end the wait too.
    virtual void add_polls(std::vector<pollfd> &polls) const {
        (void)polls;
    }

    const request asked;
};

// An event source that follows all others in the loop finds what they have changed at once.
struct held_calls final : event_source {
    // Tries the call, and keeps it if it has to wait.
    void take(std::unique_ptr<stopped_call> call);

    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;

    // For a board with its own time, which knows when a signal is sent and when a caller has gone:
    // no call is looked at in between.
    void look_when_told() {
        looks_by_itself = false;
    }
    // Ends the caller's call if a signal that waits for the caller does so.
    void look_for_signal(pid_t caller);
    void drop_gone();

private:
    struct held {
        std::unique_ptr<stopped_call> call;
        uint64_t seen; // of its changes
        int64_t until_us;
    };

    bool is_due(const held &each, int64_t time_us) const;
    static bool is_over(held &each);
    static bool is_cut_short(held &each);

    std::vector<held> waiting;
    int64_t signal_look_us = NEVER;
    bool looks_by_itself = true;
    bool has_events = false; // on what the calls have polled
};

} // namespace simulator
