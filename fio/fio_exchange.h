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

// Sends a request of at least three bytes and waits for the reply, which must begin to arrive
// within 24 ms of the end of the transmission. Returns 0 with `expected` bytes of the reply in
// `reply`, aligned so that byte 2 is the marker; 1 if the request was not written whole or no reply
// arrived. `expected` is at most reply.size(). Irregular replies are reported in the system log and
// on standard error; a realigned reply counts in `errors`.
int fio_exchange(std::span<const uint8_t> request, std::span<uint8_t> reply, uint16_t expected,
                 int port, TestRecord &record);

// The parts of the exchange that need no port.

// The bytes of one read, with room for a frame that begins up to two bytes before them or ends
// after them.
struct receive_area {
    static constexpr size_t HEADROOM = 2;
    static constexpr size_t READ_BYTES = 1000;
    std::array<uint8_t, HEADROOM + READ_BYTES + FRAME_BYTES> bytes{};

    std::span<uint8_t, READ_BYTES> received() {
        return std::span(bytes).subspan<HEADROOM, READ_BYTES>();
    }
};

// Returns the offset of the frame with this marker: 0 if byte 2 is the marker, else two bytes
// before the first marker, -2 to 997. Returns nothing if no byte is the marker.
std::optional<int32_t> find_frame(std::span<const uint8_t> received, uint8_t marker);

// Copies the frame at `offset` (-2..997) into `reply`: reply.size() bytes, FRAME_BYTES at most.
void copy_frame(const receive_area &from, int32_t offset, std::span<uint8_t> reply);

// Returns how long the wait for a reply has lasted, in microseconds, after a poll between the two
// times; 0 ends the wait. A poll of more than 24 ms (the process did not get the processor) moves
// the start of the wait to its own end, and still ends the wait.
int64_t wait_figure_us(timeval &start, const timeval &before, const timeval &after);
