#include "simulator/devices/serial/port_poll.h"

#include "simulator/devices/serial/port_calls.h"
#include "simulator/requests/caller.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <poll.h>

namespace simulator {

namespace {

constexpr uint32_t POLLED = 4096;            // descriptors of one call at most
constexpr int SELECTED = 1024;               // FD_SETSIZE
constexpr int64_t LONGEST_S = 1'000'000'000; // a longer time-out counts as none
constexpr short ALWAYS = POLLERR | POLLHUP | POLLNVAL;

// The three sets of select(2): the argument with its address, the event of poll(2), and the events
// that put a descriptor into the result.
struct select_set {
    size_t argument;
    short wanted;
    short member;
};
constexpr select_set SELECT_SETS[] = {
    {1, POLLIN | POLLRDNORM, POLLIN | POLLRDNORM | POLLHUP | POLLERR},
    {2, POLLOUT | POLLWRNORM, POLLOUT | POLLWRNORM | POLLERR},
    {3, POLLPRI, POLLPRI},
};

constexpr int WORD_BITS = 64;
using select_words = std::array<uint64_t, SELECTED / WORD_BITS>;

bool has_member(const select_words &words, int descriptor) {
    return (words[static_cast<size_t>(descriptor / WORD_BITS)] >> descriptor % WORD_BITS & 1) != 0;
}

void add_member(select_words &words, int descriptor) {
    words[static_cast<size_t>(descriptor / WORD_BITS)] |= uint64_t{1} << descriptor % WORD_BITS;
}

size_t set_bytes(int count) {
    return static_cast<size_t>((count + WORD_BITS - 1) / WORD_BITS) * sizeof(uint64_t);
}

int selected_count(const request &asked) {
    return std::clamp(static_cast<int>(asked.arguments[0]), 0, SELECTED);
}

} // namespace

port_poll::port_poll(const request &of, call_kind call, port_calls &all_ports)
    : stopped_call(of), kind(call), ports(all_ports) {
    if (is_select())
        read_select_set();
    else
        read_poll_set();
    read_mask();
    find_ports();
    if (has_port() || ports.has_own_time(asked))
        read_deadline();
}

bool port_poll::has_port() const {
    return std::ranges::any_of(
        entries, [](const entry &each) { return each.port != nullptr; });
}

void port_poll::read_poll_set() {
    const auto count = static_cast<uint32_t>(asked.arguments[1]);
    std::vector<pollfd> polled(std::min(count, POLLED));
    is_good = count <= POLLED && (count == 0 || read_memory(asked, asked.arguments[0],
                                                            polled.data(), count * sizeof(pollfd)));
    if (!is_good)
        return;
    for (const pollfd &each : polled)
        entries.push_back({each.fd, each.events, nullptr, {}});
}

void port_poll::read_select_set() {
    const int count = selected_count(asked);
    is_good = static_cast<int>(asked.arguments[0]) >= 0;
    std::vector<short> wanted(static_cast<size_t>(count));
    for (const select_set &set : SELECT_SETS) {
        select_words words{};
        const uint64_t address = asked.arguments[set.argument];
        if (address == 0 || count == 0)
            continue;
        is_good = read_memory(asked, address, words.data(), set_bytes(count)) && is_good;
        for (int descriptor = 0; descriptor < count; descriptor++)
            if (has_member(words, descriptor))
                wanted[static_cast<size_t>(descriptor)] |= set.wanted;
    }
    for (int descriptor = 0; descriptor < count; descriptor++)
        if (wanted[static_cast<size_t>(descriptor)] != 0)
            entries.push_back({descriptor, wanted[static_cast<size_t>(descriptor)], nullptr, {}});
}

void port_poll::find_ports() {
    for (entry &each : entries)
        each.port = ports.port_at(asked, each.descriptor);
    if (!has_port() && !ports.has_own_time(asked))
        return;
    for (entry &each : entries)
        if (each.port == nullptr && each.descriptor >= 0)
            each.copy = copy_descriptor(asked, each.descriptor);
}

// The time-out is a number of milliseconds, or a structure with seconds and a fraction.
void port_poll::read_deadline() {
    if (kind == call_kind::poll) {
        const auto timeout_ms = static_cast<int>(asked.arguments[2]);
        const auto continued = ports.continued_polls.extract(asked.caller);
        is_continued = !continued.empty();
        if (is_continued)
            deadline_us = continued.mapped();
        else if (timeout_ms >= 0)
            deadline_us = now_us() + timeout_ms * US_PER_MS;
        return;
    }
    const uint64_t address = asked.arguments[is_select() ? 4 : 2];
    std::array<int64_t, 2> time{};
    if (address == 0)
        return;
    is_good =
        read_memory(asked, address, time.data(), sizeof time) && has_good_parts(time) && is_good;
    const int64_t fraction_us = kind == call_kind::select ? time[1] : time[1] / NS_PER_US;
    if (time[0] < LONGEST_S)
        deadline_us = now_us() + time[0] * US_PER_SECOND + fraction_us;
}

// select(2) takes any number of microseconds.
bool port_poll::has_good_parts(const std::array<int64_t, 2> &time) const {
    const bool is_whole = kind == call_kind::select || time[1] < NS_PER_US * US_PER_SECOND;
    return time[0] >= 0 && time[1] >= 0 && is_whole;
}

// ppoll has its address, pselect a structure with that.
void port_poll::read_mask() {
    uint64_t address = kind == call_kind::ppoll ? asked.arguments[3] : 0;
    const uint64_t pair = kind == call_kind::pselect ? asked.arguments[5] : 0;
    if (pair != 0)
        is_good = read_memory(asked, pair, &address, sizeof address) && is_good;
    uint64_t read = 0;
    if (address == 0)
        return;
    is_good = read_memory(asked, address, &read, sizeof read) && is_good;
    mask = read;
}

void port_poll::look() {
    for (entry &each : entries) {
        each.found = 0;
        if (each.descriptor < 0)
            continue;
        if (each.port != nullptr)
            each.found = each.port->model.poll(line_now());
        else if (each.copy.is_open())
            each.found = present_events(each.copy.get(), each.wanted);
        else
            each.found = POLLNVAL;
        each.found &= static_cast<short>(each.wanted | ALWAYS);
    }
}

verdict port_poll::attempt() {
    if (!is_good)
        return verdict::passed_on(); // the kernel refuses it
    look();
    const bool is_found =
        std::ranges::any_of(entries, [](const entry &each) { return each.found != 0; });
    return is_found || now_us() >= deadline_us ? verdict::done(give_result())
                                               : verdict::blocked(deadline_us);
}

uint64_t port_poll::changes() const {
    uint64_t sum = 0;
    for (const entry &each : entries)
        sum += each.port != nullptr ? each.port->model.changes() : 0;
    return sum;
}

verdict port_poll::interrupt() {
    if (mask)
        return verdict::passed_on();
    give_time_left();
    if (kind == call_kind::poll && deadline_us != NEVER && !has_handled_signal(asked))
        ports.continued_polls[asked.caller] = deadline_us; // it is being stopped
    return verdict::done(-RESTARTED_WITHOUT_HANDLER);
}

void port_poll::add_polls(std::vector<pollfd> &polls) const {
    for (const entry &each : entries)
        if (each.copy.is_open())
            polls.push_back({each.copy.get(), each.wanted, 0});
}

int64_t port_poll::give_result() {
    give_time_left();
    return is_select() ? give_select_set() : give_poll_set();
}

int64_t port_poll::give_poll_set() {
    std::vector<pollfd> polled;
    for (const entry &each : entries)
        polled.push_back({each.descriptor, each.wanted, each.found});
    if (!write_memory(asked, asked.arguments[0], polled.data(), polled.size() * sizeof(pollfd)))
        return -EFAULT;
    return std::ranges::count_if(entries, [](const entry &each) { return each.found != 0; });
}

int64_t port_poll::give_select_set() {
    const bool is_closed = std::ranges::any_of(
        entries, [](const entry &each) { return (each.found & POLLNVAL) != 0; });
    if (is_closed)
        return -EBADF;
    int64_t members = 0;
    for (const select_set &set : SELECT_SETS) {
        const uint64_t address = asked.arguments[set.argument];
        select_words words{};
        for (const entry &each : entries)
            if (address != 0 && (each.wanted & set.wanted) != 0 && (each.found & set.member) != 0) {
                add_member(words, each.descriptor);
                members++;
            }
        if (address != 0 &&
            !write_memory(asked, address, words.data(), set_bytes(selected_count(asked))))
            return -EFAULT;
    }
    return members;
}

// All but poll(2) return the time that is left.
void port_poll::give_time_left() {
    if (kind == call_kind::poll || deadline_us == NEVER)
        return;
    const int64_t left_us = std::max<int64_t>(0, deadline_us - now_us());
    const int64_t unit = kind == call_kind::select ? 1 : NS_PER_US;
    const std::array<int64_t, 2> time = {left_us / US_PER_SECOND, left_us % US_PER_SECOND * unit};
    (void)write_memory(asked, asked.arguments[is_select() ? 4 : 2], time.data(), sizeof time);
}

} // namespace simulator
