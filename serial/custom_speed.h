#pragma once

#include <cstdint>

// Sets both speeds of a port to any rate, in bits per second, see BOTHER in asm/termbits.h. Returns
// 0, or -1 with the speed unchanged if the kernel or the driver does not support it.
int set_custom_speed(int fd, uint32_t bps);
