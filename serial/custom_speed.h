#pragma once

#include <cstdint>

// Sets both speeds of a port to any rate, in bits per second, where the kernel offers that (BOTHER
// in asm/termbits.h). Returns 0, or -1 where it does not: the speed is then left as it was.
int set_custom_speed(int fd, uint32_t bps);
