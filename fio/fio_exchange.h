// One request to a field I/O module on a sync port, and its reply.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <sys/time.h>

#include "fio/fio_frame.h"
#include "runtime/record.h"

// Sends a request (its first three bytes at least) and waits for the reply, which must begin to
// arrive within 24 ms of the end of the transmission. Returns 0 with `expected` bytes of the reply
// in `reply`, aligned so that byte 2 is the marker; 1 when the request could not be written whole
// or no reply came. `expected` is at most reply.size(). What is odd about a reply goes to the
// system log and to standard error; a reply that had to be realigned counts in `errors`.
int fio_exchange(std::span<const uint8_t> request, std::span<uint8_t> reply, uint16_t expected,
                 int port, TestRecord &record);

// The parts of it that need no port.

// What one read brings, with room for a frame that begins up to two bytes before it or goes on
// after it.
struct receive_area {
    static constexpr size_t HEADROOM = 2;
    static constexpr size_t READ_BYTES = 1000;
    std::array<uint8_t, HEADROOM + READ_BYTES + FRAME_BYTES> bytes{};

    std::span<uint8_t, READ_BYTES> received() {
        return std::span(bytes).subspan<HEADROOM, READ_BYTES>();
    }
};

// Where the frame with this marker begins in what was received: 0, its place, if byte 2 is the
// marker, else two before the first marker, -2 to 997. Nothing if no byte is the marker.
std::optional<int32_t> find_frame(std::span<const uint8_t> received, uint8_t marker);

// Copies the frame at `offset` (-2..997); as many bytes as `reply` has, FRAME_BYTES at most.
void copy_frame(const receive_area &from, int32_t offset, std::span<uint8_t> reply);

// How long the wait for a reply has lasted, in microseconds, after a poll between the two times: 0
// once it is over. A poll that itself took more than 24 ms, because the process did not get the
// processor, moves the start of the wait to its end, and ends the wait all the same.
int64_t wait_figure_us(timeval &start, const timeval &before, const timeval &after);
