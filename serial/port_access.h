// The board's serial ports: open in asynchronous (character) or synchronous (HDLC) mode, speed, and
// modem lines.

#pragma once

#include <cstdint>

// Speed code of the asynchronous opens of this process; 115200 bit/s at start.
extern uint32_t port_speed_code;

// Board-variant code. Nothing sets it; see open_async_port.
extern uint32_t platform_code;

constexpr uint32_t SPEED_115200 = 17;
constexpr uint32_t SPEED_38400 = 15;
constexpr uint32_t SPEED_9600 = 13;
constexpr uint32_t SPEED_614400 = 33;

// On every machine the speed codes are those of the PowerPC's termios; the serial driver adds 32
// and 33. A rate without a code gives 9 (1200 bit/s); a code without a rate gives 1 bit/s.
uint32_t baud_to_speed_code(int32_t bps);
int32_t speed_code_to_baud(uint32_t code);

// Returns the number at the start of a port's name, 0 if there is none.
int32_t port_number(const char *port);

// The receiver's and the producer's value for a port that is not open; lower values mean the same.
constexpr int PORT_NOT_OPEN = 0;

// Opens "/dev/sp<port>" (cut to 14 characters) with the flags of open(2), raw and at
// `port_speed_code`; in HDLC mode it opens the synchronous port instead, always read-write. Returns
// the descriptor, which the caller closes, or -1 with errno from open.
int open_async_port(const char *port, int oflag);

// Opens "/dev/sp<port>s" (cut to 14 characters) read-write, at 614400 bit/s, in the driver's
// synchronous mode. Returns the descriptor, which the caller closes, or -1 with errno from open.
int open_sync_port(const char *port);

// Sets raw mode without hardware flow control, see cfmakeraw(3). Returns tcsetattr's result.
int set_raw_mode(int fd);

// Sets speed, 8 bits and no parity; waits for output and drops input. Returns tcsetattr's result.
int set_port_speed(int fd, uint32_t speed_code);

// Modem lines, see ioctl_tty(2). set_rts returns the result of TIOCMSET; the others return 1 when
// the line is asserted, else 0. On a port without modem lines the result means nothing.
int set_rts(int fd, int on);
int get_cts(int fd);
int get_dsr(int fd);
int get_dcd(int fd);
