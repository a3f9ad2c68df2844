#include "simulator/requests/request_channel.h"

#include "simulator/requests/notification.h"

#include <set>
#include <string>

namespace simulator {

std::vector<uint32_t> request_channel::stopped_ioctls() const {
    std::set<uint32_t> numbers;
    for (const request_taker *taker : takers)
        for (const uint32_t number : taker->stopped_ioctls())
            numbers.insert(number);
    return {numbers.begin(), numbers.end()};
}

void request_channel::add_polls(std::vector<pollfd> &polls) const {
    if (listener.is_open())
        polls.push_back({listener.get(), POLLIN, 0});
}

void request_channel::ready(const pollfd &event) {
    request asked{};
    if ((event.revents & POLLIN) != 0 && receive(listener.get(), asked)) {
        request_taker *taker = find_taker(asked);
        if (taker != nullptr)
            taker->take_request(asked);
        else
            pass_on(asked);
        return;
    }
    if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listener.reset();
}

request_taker *request_channel::find_taker(const request &asked) const {
    const std::string path =
        "/proc/" + std::to_string(asked.caller) + "/fd/" + std::to_string(asked.descriptor());
    struct stat node {};
    if (stat(path.c_str(), &node) != 0 || !is_waiting(asked))
        return nullptr;
    for (request_taker *taker : takers)
        if (taker->owns(node))
            return taker;
    return nullptr;
}

} // namespace simulator
