// The requests that a serial port answers. The caller of `port::request` copies the argument
// between the program's memory and its own; this table gives the size and the direction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/serial.h>
#include <span>

namespace simulator::line {

// The serial driver's request to set the synchronous mode. The port carries frames only if the four
// argument bytes are SYNC_MODE.
constexpr uint32_t SYNC_MODE_REQUEST = 0x40047300;
constexpr uint8_t SYNC_MODE[4] = {1, 10, 0, 0};

constexpr size_t REQUEST_BYTES = sizeof(serial_icounter_struct); // the longest argument

struct request_shape {
    uint32_t number;
    const char *name;
    size_t argument_bytes; // 0: the argument is a number, or there is none
    bool is_read;          // from the program
    bool is_written;       // to the program
};

// Null for a request that the port does not know: it answers ENOTTY.
const request_shape *find_request(uint32_t number);

} // namespace simulator::line
