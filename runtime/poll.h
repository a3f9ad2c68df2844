#pragma once

#include <cstdint>

// Waits for input for at most `timeout_ms`, see poll(2). True when the device reports something to
// read, which may turn out to be an error or a hang-up.
bool input_within(int fd, int32_t timeout_ms);

// Waits for room for output for at most `timeout_ms`. True when the device reports it, or an error.
bool output_within(int fd, int32_t timeout_ms);
