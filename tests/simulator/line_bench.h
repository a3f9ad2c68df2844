// Two ports and a cable on a bench whose clock the test moves: what the tests of the line share.
#pragma once

#include "simulator/line/cable.h"
#include "simulator/line/port.h"
#include "simulator/line/requests.h"

#include <algorithm>
#include <asm/ioctls.h>
#include <asm/termios.h>
#include <cstring>
#include <string>

namespace simulator::line {

struct line_bench {
    explicit line_bench(port_kind kind = {}) : one(kind), two(kind), joint(one, two) {}

    port one;
    port two;
    cable joint;
    int64_t now = 5 * SECOND;

    void run(int64_t duration) {
        now += duration;
        joint.advance(now);
    }

    // Makes a call until it is done, from event to event. A call that waits when nothing is left to
    // happen is returned as it waits.
    template <class Attempt>
    outcome finish(Attempt attempt) {
        for (;;) {
            const outcome answer = attempt();
            const int64_t next = std::min(answer.until, joint.next_event_time());
            if (!answer.is_waiting || next == NEVER)
                return answer;
            now = std::max(now, next);
            joint.advance(now);
        }
    }

    int64_t open(port &asked) {
        open_call call{.nonblocking = false};
        return finish([&] { return asked.open(now, call); }).result;
    }

    // The value is what a request returns through its argument, if it does; else its result.
    int64_t request(port &asked, uint32_t number, int32_t value = 0) {
        uint8_t memory[sizeof value];
        memcpy(memory, &value, sizeof value);
        request_call call{
            .number = number, .value = static_cast<uint64_t>(value), .argument = memory};
        const outcome answer = finish([&] { return asked.request(now, call); });
        memcpy(&value, memory, sizeof value);
        const request_shape *shape = find_request(number);
        return answer.result == 0 && shape != nullptr && shape->is_written ? value : answer.result;
    }

    bool has_lines(port &asked, uint32_t lines) {
        return (static_cast<uint32_t>(request(asked, TIOCMGET)) & lines) == lines;
    }

    // Changes settings with a function of the structure.
    template <class Change>
    int64_t set(port &asked, Change change, uint32_t number = TCSETS2) {
        tty_settings wanted = asked.current_settings();
        change(wanted);
        uint8_t memory[sizeof wanted];
        memcpy(memory, &wanted, sizeof wanted);
        request_call call{.number = number, .argument = memory};
        return finish([&] { return asked.request(now, call); }).result;
    }

    // Sets what is set already, with one of the requests that set.
    void set_again(port &asked, uint32_t number) {
        const auto nothing = [](tty_settings &) {};
        (void)set(asked, nothing, number);
    }

    // What cfmakeraw(3) does, and the speed as a number.
    static void make_raw(tty_settings &wanted, uint32_t bps) {
        wanted.c_iflag = 0;
        wanted.c_oflag = 0;
        wanted.c_lflag = 0;
        wanted.c_cflag = (wanted.c_cflag & ~static_cast<tcflag_t>(CBAUD)) | BOTHER;
        wanted.c_ospeed = wanted.c_ispeed = bps;
    }
    void set_raw(port &asked, uint32_t bps) {
        (void)set(
            asked, [&](tty_settings &wanted) { make_raw(wanted, bps); });
    }
    void open_raw(uint32_t bps) {
        for (port *each : {&one, &two}) {
            (void)open(*each);
            set_raw(*each, bps);
        }
    }

    // A write that returns what fits at once.
    int64_t write(port &asked, const std::string &text) {
        write_call call{.bytes = bytes_of(text), .nonblocking = true};
        return asked.write(now, call).result;
    }
    int64_t write_blocking(port &asked, const std::string &text) {
        write_call call{.bytes = bytes_of(text), .nonblocking = false};
        return finish([&] { return asked.write(now, call); }).result;
    }
    void drain(port &asked) {
        (void)request(asked, TCSBRK, 1);
    }

    // One read that does not wait; empty when there is nothing.
    std::string read(port &asked, size_t most = 65536) {
        std::string text(most, '\0');
        read_call call{.bytes = {reinterpret_cast<uint8_t *>(text.data()), most},
                       .nonblocking = true};
        text.resize(static_cast<size_t>(std::max<int64_t>(asked.read(now, call).result, 0)));
        return text;
    }
    std::string read_all(port &asked) {
        std::string all;
        for (std::string part = read(asked); !part.empty(); part = read(asked))
            all += part;
        return all;
    }

    static std::span<const uint8_t> bytes_of(const std::string &text) {
        return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
    }
};

// What arrives at a port after one end has written and everything has left.
inline std::string sent_across(line_bench &bench, const std::string &text) {
    (void)bench.write_blocking(bench.one, text);
    bench.drain(bench.one);
    bench.run(SECOND);
    return bench.read_all(bench.two);
}

} // namespace simulator::line
