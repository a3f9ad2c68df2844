#include "simulator/requests/request_channel.h"

#include "simulator/base/message.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/notification.h"
#include "simulator/requests/request_filter.h"

#include <set>

namespace simulator {

std::vector<uint32_t> request_channel::stopped_ioctls() const {
    std::set<uint32_t> numbers;
    for (const request_taker *taker : takers)
        for (const uint32_t number : taker->stopped_ioctls())
            numbers.insert(number);
    return {numbers.begin(), numbers.end()};
}

void request_channel::listen_on(unique_fd filters_listener) {
    listener = std::move(filters_listener);
    prefer_own_processor(listener.get());
}

void request_channel::add_polls(std::vector<pollfd> &polls) const {
    if (listener.is_open())
        polls.push_back({listener.get(), POLLIN, 0});
}

void request_channel::ready(const pollfd &event) {
    request asked{};
    if ((event.revents & POLLIN) != 0 && receive(listener.get(), asked)) {
        hand_over(asked);
        return;
    }
    if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listener.reset();
}

void request_channel::hand_over(const request &asked) {
    if (!is_native_call(asked.architecture, asked.call)) {
        refuse_foreign(asked);
        return;
    }
    if (process_limit != nullptr && starts_process(asked.call)) {
        process_limit->take_request(asked);
        return;
    }
    if ((ports != nullptr && ports->take(asked)) || (lamp != nullptr && lamp->take(asked)))
        return;
    request_taker *taker = kind_of(asked.call) == call_kind::request ? find_taker(asked) : nullptr;
    if (taker != nullptr)
        taker->take_request(asked);
    else
        pass_on(asked);
}

void request_channel::refuse_foreign(const request &asked) {
    if (!has_refused)
        report("process %d is a 32-bit program, whose calls the board cannot answer; run native "
               "programs, or others under a user-mode emulator",
               static_cast<int>(asked.caller));
    has_refused = true;
    end_caller(asked);
}

request_taker *request_channel::find_taker(const request &asked) const {
    const std::optional<struct stat> found = status_of(asked, asked.descriptor());
    if (!found)
        return nullptr;
    for (request_taker *taker : takers)
        if (taker->owns(*found))
            return taker;
    return nullptr;
}

} // namespace simulator
