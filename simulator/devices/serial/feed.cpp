#include "simulator/devices/serial/feed.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <fcntl.h>

namespace simulator {

namespace {

constexpr int64_t SILENCE_US = 8'000; // between two blocks

} // namespace

feed::feed(const serial_port &fed_port)
    : device("feed" + fed_port.name), end(fed_port.is_synchronous()) {
    set_speed(end.is_synchronous ? line::FRAME_BPS : FEED_BPS);
}

void feed::set_speed(uint32_t bps) {
    const line::line_format format{.bps = bps};
    end.set_format(0, format);
    const int64_t block_ns = static_cast<int64_t>(FEED_BLOCK_BYTES) * line::character_ns(format);
    period_us = std::max(FEED_PERIOD_US, block_ns / NS_PER_US + SILENCE_US);
}

bool feed::load(const char *path) {
    const unique_fd file(open(path, O_RDONLY | O_CLOEXEC));
    bytes.resize(FEED_FILE_BYTES_MAX + 1);
    size_t length = 0;
    ssize_t count = file.is_open() ? 1 : -1;
    while (count > 0 && length < bytes.size()) {
        count = read(file.get(), bytes.data() + length, bytes.size() - length);
        length += count > 0 ? static_cast<size_t>(count) : 0;
    }
    bytes.resize(length);
    if (count < 0)
        return cannot("read", path);
    if (length > FEED_FILE_BYTES_MAX)
        return complain("--feed: %s is too long: a feed's file has 1 to %zu bytes", path,
                        FEED_FILE_BYTES_MAX);
    return length > 0 || complain("--feed: %s is empty: a feed's file has 1 to %zu bytes", path,
                                  FEED_FILE_BYTES_MAX);
}

bool feed::open_nodes() {
    next_block_us = now_us();
    return true;
}

int64_t feed::wake_time_us() const {
    return next_block_us;
}

void feed::wake(int64_t time_us) {
    const size_t length = std::min(FEED_BLOCK_BYTES, bytes.size() - sent);
    end.send(line_now(), std::span(bytes).subspan(sent, length));
    sent = (sent + length) % bytes.size();
    next_block_us = time_us + period_us;
}

bool feed::can_have(std::string_view thing) const {
    return thing == "port" || thing == (end.is_synchronous ? "sync line" : "async line");
}

void feed::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (can_have(thing))
        targets.insert(name);
}

bool feed::take_fault(const fault &wanted) {
    if (wanted.target != name || !can_have(wanted.kind->thing))
        return false;
    faults.add(wanted);
    return true;
}

} // namespace simulator
