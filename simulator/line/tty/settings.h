// The settings of a port as the kernel keeps them: struct termios2, with each speed as a number and
// as a code in c_cflag. See termios(3) and ioctl_tty(2).
//
// This uses the kernel's header. The structure in the C library's <termios.h> is another one; a
// file cannot include both.
#pragma once

#include "simulator/line/uart/wire.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>

namespace simulator::line {

using tty_settings = ::termios2;

// The settings of a new port: 9600 bit/s, 8 data bits, cooked mode with echo (tty_std_termios in
// the kernel, measured on the 8250 driver).
tty_settings initial_settings();

// Computes the two speeds from the codes in c_cflag. With BOTHER the numbers stay as they are. An
// invalid code keeps the speed of `before`.
void resolve_speeds(tty_settings &settings, const tty_settings &before);

// True for speed 0, which turns DTR and RTS off.
inline bool hangs_up(const tty_settings &settings) {
    return settings.c_ospeed == 0;
}

// Speed and framing. The chip has one clock for both directions, at the output speed. A port with
// speed 0 still runs, at 9600.
line_format format_of(const tty_settings &settings);

// True if neither input nor output is processed, which frames need.
bool is_raw(const tty_settings &settings);

} // namespace simulator::line
