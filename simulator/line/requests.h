// The requests that a serial port answers. The caller of `port::request` moves the argument between
// the program's memory and its own: this table says how much, and which way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace simulator::line {

// The serial driver's request to set the synchronous mode. Of its four argument bytes only
// SYNC_MODE makes the port carry frames.
constexpr uint32_t SYNC_MODE_REQUEST = 0x40047300;
constexpr uint8_t SYNC_MODE[4] = {1, 10, 0, 0};

struct request_shape {
    uint32_t number;
    const char *name;
    size_t argument_bytes; // 0: the argument is a number, or there is none
    bool is_read;          // from the program
    bool is_written;       // to the program
};

// A null pointer for a request that the port does not know (it answers ENOTTY).
const request_shape *find_request(uint32_t number);

} // namespace simulator::line
