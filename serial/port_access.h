// The board's serial ports: open in asynchronous (character) or synchronous (HDLC) mode, speed, and
// modem lines.

#pragma once

#include <cstdint>

// Speed code of the asynchronous opens of this process; 115200 bit/s at start.
extern uint32_t port_speed_code;

// Board-variant code. Nothing sets it; see open_async_port.
extern uint32_t platform_code;

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

// Modem lines, see ioctl_tty(2). set_rts returns the result of TIOCMSET; the others return 1 when
// the line is asserted, else 0. On a port without modem lines the result means nothing.
int set_rts(int fd, int on);
int get_cts(int fd);
int get_dsr(int fd); // completes the set; no test looks at DSR
int get_dcd(int fd);
