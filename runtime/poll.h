#pragma once

#include <cstdint>

// Waits for input for at most `timeout_ms`, see poll(2). True when the device reports something to
// read, which may turn out to be an error or a hang-up.
bool input_within(int fd, int32_t timeout_ms);

// True when the port has hung up, or is gone: it then reports input at once and for ever, and every
// read of it fails. See POLLHUP, POLLERR and POLLNVAL in poll(2).
bool has_hung_up(int fd);

// Waits for room for output for at most `timeout_ms`. True when the device reports it, or an error.
bool output_within(int fd, int32_t timeout_ms);
