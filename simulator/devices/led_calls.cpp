#include "simulator/devices/led_calls.h"

#include "simulator/requests/notification.h"

#include <algorithm>
#include <array>
#include <fcntl.h>

namespace simulator {

namespace {

constexpr size_t WRITTEN_BYTES = 4096; // of one call

} // namespace

bool led_calls::take(const request &asked) {
    if (const auto opened = opening_of(asked))
        return take_open(asked, *opened);
    switch (kind_of(asked.call)) {
    case call_kind::read:
        return is_lamps(asked) && take_read(asked);
    case call_kind::write:
        return is_lamps(asked) && take_write(asked);
    default:
        return false;
    }
}

bool led_calls::take_open(const request &asked, const opening &wanted) const {
    const auto [directory, path, flags] = wanted;
    if ((flags & (O_PATH | O_DIRECTORY | O_EXCL)) != 0)
        return false;
    const auto found = status_of_path(asked, directory, path);
    if (!found || !lamp.is_node(*found))
        return false;
    const unique_fd node = lamp.open_node(flags & ~(O_CREAT | O_TRUNC));
    const int number = free_number(asked, numbers, 0);
    if (!node.is_open() || number < 0 ||
        !install(asked, node.get(), number, (flags & O_CLOEXEC) != 0))
        refuse(asked, node.is_open() ? EMFILE : errno);
    return true;
}

bool led_calls::take_read(const request &asked) const {
    const uint8_t state = lamp.present_state();
    const size_t count = std::min<size_t>(1, asked.arguments[2]);
    if (!access_of(asked, asked.descriptor()).is_readable)
        refuse(asked, EBADF);
    else if (!write_memory(asked, asked.arguments[1], &state, count))
        refuse(asked, EFAULT);
    else
        answer(asked, static_cast<int64_t>(count));
    return true;
}

bool led_calls::take_write(const request &asked) const {
    std::array<uint8_t, WRITTEN_BYTES> states{};
    const size_t count = std::min<size_t>(states.size(), asked.arguments[2]);
    if (!access_of(asked, asked.descriptor()).is_writable) {
        refuse(asked, EBADF);
        return true;
    }
    if (!read_memory(asked, asked.arguments[1], states.data(), count)) {
        refuse(asked, EFAULT);
        return true;
    }
    lamp.take_states(std::span(states).first(count));
    answer(asked, static_cast<int64_t>(count));
    return true;
}

// True if the descriptor is the LED's.
bool led_calls::is_lamps(const request &asked) const {
    const auto found = status_of(asked, asked.descriptor());
    return found && lamp.is_node(*found);
}

} // namespace simulator
