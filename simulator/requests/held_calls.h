// Calls that wait for something on the board. They stay stopped in the kernel, and the board tries
// them again whenever it may have come.
//
// Once the board has taken a call, only a fatal signal interrupts it in the kernel, so nothing is
// done twice. The board therefore checks every 20 ms whether the caller has a signal pending. It
// then ends the call as the kernel would: with what the call has done so far, or else with
// ERESTARTSYS, which the kernel turns into EINTR or a second call (see SA_RESTART in sigaction(2)).
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

// The result of an attempt to carry out a call.
struct verdict {
    enum class kind {
        done,     // the call returns `value`, an error as a negative number
        kernel,   // the kernel carries it out
        answered, // the attempt has answered it
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
    // Changes whenever a new attempt may have another result.
    virtual uint64_t changes() const = 0;
    // What becomes of the call if it is interrupted now.
    virtual verdict interrupt() {
        return verdict::done(-RESTARTED_OR_EINTR);
    }
    // The signals that do not interrupt it, if they are not those that its caller blocks.
    virtual std::optional<uint64_t> blocked_signals() const {
        return std::nullopt;
    }
    // The signals that end it though its caller blocks them.
    virtual uint64_t awaited_signals() const {
        return 0;
    }
    // The caller has been killed.
    virtual void abandon() {}
    // Appends descriptors whose events may also end the wait.
    virtual void add_polls(std::vector<pollfd> &polls) const {
        (void)polls;
    }

    const request asked;
};

// Goes last in the event loop, where it sees at once what the other sources have changed.
struct held_calls final : event_source {
    // Tries the call, and holds it if it has to wait.
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
    // Ends the caller's call as a signal would: another thread has taken the signal that stops the
    // whole process.
    void interrupt(pid_t caller);
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
    bool has_events = false; // on the descriptors that calls have added
};

} // namespace simulator
