#include "simulator/requests/held_calls.h"

#include "simulator/requests/caller.h"
#include "simulator/requests/notification.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr int64_t SIGNAL_LOOK_US = 20'000;

void give_result(const request &asked, int64_t value) {
    if (value < 0)
        refuse(asked, static_cast<int>(-value));
    else
        answer(asked, value);
}

// False if the call waits.
bool settle(const stopped_call &call, const verdict &outcome) {
    if (outcome.what == verdict::kind::done)
        give_result(call.asked, outcome.value);
    else if (outcome.what == verdict::kind::kernel)
        pass_on(call.asked);
    return outcome.what != verdict::kind::blocked;
}

} // namespace

void held_calls::take(std::unique_ptr<stopped_call> call) {
    const verdict outcome = call->attempt();
    if (settle(*call, outcome))
        return;
    if (waiting.empty() && looks_by_itself)
        signal_look_us = now_us() + SIGNAL_LOOK_US;
    const uint64_t seen = call->changes();
    waiting.push_back({std::move(call), seen, outcome.until_us});
}

void held_calls::add_polls(std::vector<pollfd> &polls) const {
    for (const held &each : waiting)
        each.call->add_polls(polls);
}

void held_calls::ready(const pollfd &) {
    has_events = true;
}

bool held_calls::is_due(const held &each, int64_t time_us) const {
    return has_events || each.until_us <= time_us || each.seen != each.call->changes();
}

int64_t held_calls::wake_time_us() const {
    int64_t next = waiting.empty() ? NEVER : signal_look_us;
    for (const held &each : waiting)
        next = std::min(next, is_due(each, 0) ? 0 : each.until_us);
    return next;
}

void held_calls::wake(int64_t time_us) {
    const bool looks_for_signals = signal_look_us <= time_us;
    std::erase_if(waiting, [&](held &each) {
        return (is_due(each, time_us) && is_over(each)) ||
               (looks_for_signals && is_cut_short(each));
    });
    has_events = false;
    if (looks_for_signals && looks_by_itself)
        signal_look_us = time_us + SIGNAL_LOOK_US;
}

bool held_calls::is_over(held &each) {
    if (!is_still_waiting(each.call->asked)) {
        each.call->abandon();
        return true;
    }
    const verdict outcome = each.call->attempt();
    each.seen = each.call->changes();
    each.until_us = outcome.until_us;
    return settle(*each.call, outcome);
}

bool held_calls::is_cut_short(held &each) {
    const request &asked = each.call->asked;
    if (!is_waiting(asked)) {
        each.call->abandon();
        return true;
    }
    if (!is_interrupted(asked, each.call->blocked_signals(), each.call->awaited_signals()))
        return false;
    return settle(*each.call, each.call->interrupt());
}

void held_calls::look_for_signal(pid_t caller) {
    std::erase_if(
        waiting,
        [&](held &each) { return each.call->asked.caller == caller && is_cut_short(each); });
}

void held_calls::interrupt(pid_t caller) {
    std::erase_if(
        waiting,
        [&](held &each) {
            return each.call->asked.caller == caller && settle(*each.call, each.call->interrupt());
        });
}

void held_calls::drop_gone() {
    std::erase_if(
        waiting,
        [](held &each) {
            const bool is_gone = !is_waiting(each.call->asked);
            if (is_gone)
                each.call->abandon();
            return is_gone;
        });
}

} // namespace simulator
