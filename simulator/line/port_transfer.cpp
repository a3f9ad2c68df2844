// Reads, writes and poll: what the calls wait for and what they return, as in n_tty.
#include "simulator/line/port.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>

namespace simulator::line {

namespace {

// Below this number of queued bytes the driver wakes a writer, and poll reports the port writable.
constexpr size_t WAKEUP_BYTES = 256;
constexpr int64_t TENTH = SECOND / 10; // the unit of VTIME

constexpr short HUNG_UP_EVENTS = POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM | POLLERR | POLLHUP;

} // namespace

outcome port::read(int64_t now, read_call &call) {
    advance_cable(now);
    if (is_hung_up || call.bytes.empty())
        return {static_cast<int64_t>(call.done)};
    outcome answer;
    if (carries_frames()) {
        answer = read_frame(call);
    } else {
        answer = read_bytes(now, call);
        throttle(now);
    }
    advance_cable(now);
    return answer;
}

// The four cases of VMIN and VTIME, see termios(3). A non-blocking read returns at once with what
// there is.
outcome port::read_bytes(int64_t now, read_call &call) {
    if ((settings.c_lflag & ICANON) != 0) {
        if (tty.has_input(1))
            return {static_cast<int64_t>(tty.read(now, call.bytes))};
        return call.nonblocking ? outcome{-EAGAIN} : outcome{.is_waiting = true};
    }
    const size_t least = settings.c_cc[VMIN];
    const int64_t pause = settings.c_cc[VTIME] * TENTH;
    const size_t got = tty.read(now, call.bytes.subspan(call.done));
    call.done += got;
    if (got > 0 || call.since == NEVER)
        call.since = now;
    const auto done = static_cast<int64_t>(call.done);
    const bool is_enough = call.done >= std::min(std::max(least, size_t{1}), call.bytes.size());
    const bool is_timed = pause > 0 && (least == 0 || call.done > 0);
    if (is_enough || (least == 0 && pause == 0) || (is_timed && now >= call.since + pause))
        return {done};
    if (call.nonblocking)
        return {done > 0 ? done : -EAGAIN};
    return {.is_waiting = true, .until = is_timed ? call.since + pause : NEVER};
}

// One frame at most. The rest of a longer frame stays for the next read.
outcome port::read_frame(read_call &call) {
    if (received_frames.empty())
        return call.nonblocking ? outcome{-EAGAIN} : outcome{.is_waiting = true};
    std::vector<uint8_t> &frame = received_frames.front();
    const auto count = static_cast<ptrdiff_t>(std::min(frame.size(), call.bytes.size()));
    std::copy_n(frame.begin(), count, call.bytes.begin());
    frame.erase(frame.begin(), frame.begin() + count);
    if (frame.empty())
        received_frames.pop_front();
    return {count};
}

outcome port::write(int64_t now, write_call &call) {
    advance_cable(now);
    if (writing != nullptr && writing != &call && !is_hung_up)
        return call.nonblocking ? outcome{-EAGAIN} : outcome{.is_waiting = true};
    const outcome answer = is_hung_up         ? outcome{-EIO}
                           : carries_frames() ? write_frame(now, call)
                                              : write_characters(now, call);
    if (!answer.is_waiting)
        end_write(call);
    else if (call.is_waiting)
        writing = &call;
    return answer;
}

void port::end_write(const write_call &call) {
    if (writing != &call)
        return;
    writing = nullptr;
    change_count++;
}

// A waiting writer continues when the queue is nearly empty, not at the first free byte.
outcome port::write_characters(int64_t now, write_call &call) {
    const auto rest = call.bytes.subspan(call.done);
    if (!call.is_waiting || output.queued() < WAKEUP_BYTES)
        call.done += processing.write(now, rest);
    advance_cable(now);
    const auto done = static_cast<int64_t>(call.done);
    if (call.done == call.bytes.size())
        return {done};
    if (call.nonblocking)
        return {done > 0 ? done : -EAGAIN};
    call.is_waiting = true;
    return {.is_waiting = true};
}

outcome port::write_frame(int64_t now, write_call &call) {
    if (call.bytes.empty())
        return {};
    if (call.bytes.size() > FRAME_QUEUE_BYTES)
        return {-EMSGSIZE};
    if (frames.room() < call.bytes.size())
        return call.nonblocking ? outcome{-EAGAIN} : outcome{.is_waiting = true};
    frames.put(now, call.bytes);
    advance_cable(now);
    return {static_cast<int64_t>(call.bytes.size())};
}

bool port::has_input(size_t least) const {
    return carries_frames() ? !received_frames.empty() : tty.has_input(least);
}

bool port::has_room_for_poll() const {
    return writing == nullptr && output.queued() + frames.queued() < WAKEUP_BYTES;
}

// With VMIN and without VTIME, a port is readable if a read would not wait.
short port::poll(int64_t now) {
    advance_cable(now);
    if (is_hung_up)
        return HUNG_UP_EVENTS;
    const size_t least = settings.c_cc[VTIME] == 0 ? settings.c_cc[VMIN] : 1;
    const int readable = has_input(least) ? POLLIN | POLLRDNORM : 0;
    const int writable = has_room_for_poll() ? POLLOUT | POLLWRNORM : 0;
    return static_cast<short>(readable | writable);
}

// All of the next read; 0 if that has more, or may wait.
size_t port::copy_input(std::span<uint8_t> to) const {
    if (!carries_frames())
        return tty.has_input(settings.c_cc[VMIN]) ? tty.copy_input(to) : 0;
    if (received_frames.empty() || received_frames.front().size() > to.size())
        return 0;
    std::ranges::copy(received_frames.front(), to.begin());
    return received_frames.front().size();
}

at_once port::foresee(int64_t now, std::span<uint8_t> to) {
    const short events = poll(now);
    const bool changes_characters =
        (settings.c_lflag & ICANON) != 0 || (settings.c_oflag & OPOST) != 0;
    const bool has_flow_control =
        (settings.c_cflag & CRTSCTS) != 0 || (settings.c_iflag & IXOFF) != 0;
    if (is_hung_up || changes_characters || has_flow_control)
        return {};
    const size_t room = carries_frames() ? frames.room() : output.room();
    return {events, copy_input(to), writing == nullptr ? room : 0, drain_time() <= now};
}

} // namespace simulator::line
