// A port's terminal settings: its speed, raw mode, and what the sync port differs in.
//
// They are set through the kernel's own structure and requests, see asm/termbits.h and
// ioctl_tty(2). The C library's termios structure is not used: its B... constants are codes of
// c_cflag in some versions and rates in others, and its tcsetattr(3) rewrites the codes of the
// serial driver.

#pragma once

#include <cstdint>

constexpr uint32_t SPEED_115200 = 17;
constexpr uint32_t SPEED_38400 = 15;
constexpr uint32_t SPEED_9600 = 13;
constexpr uint32_t SPEED_614400 = 33;

// The speed codes are those of the PowerPC kernel, whatever the machine; the serial driver adds 32
// and 33. A rate without a code gives 9 (1200 bit/s); a code without a rate gives 1 bit/s.
uint32_t baud_to_speed_code(int32_t bps);
int32_t speed_code_to_baud(uint32_t code);

// Raw mode as cfmakeraw(3) makes it, without hardware flow control. The speed stays. Returns 0, or
// -1 with errno from ioctl(2).
int set_raw_mode(int fd);

// Speed, 8 bits, no parity; waits for output and drops input. On a host a code without a rate
// leaves the speed as it is. Returns 0, or -1 with errno from ioctl(2).
int set_port_speed(int fd, uint32_t speed_code);

// What a sync port's driver is given: bytes unchanged both ways, 614400 bit/s; waits for output and
// drops input. Returns 0, or -1 with errno from ioctl(2).
int set_sync_settings(int fd);
