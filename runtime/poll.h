#pragma once

#include <cstdint>

// Waits for input for at most `timeout_ms`, see poll(2). Returns true if the device reports
// something to read, which may be an error or a hang-up.
bool input_within(int fd, int32_t timeout_ms);

// Returns true if the port has hung up or is gone: every poll then reports input immediately, and
// every read fails. See POLLHUP, POLLERR and POLLNVAL in poll(2).
bool has_hung_up(int fd);

// Waits for room for output for at most `timeout_ms`. Returns true if the device reports room or an
// error.
bool output_within(int fd, int32_t timeout_ms);
