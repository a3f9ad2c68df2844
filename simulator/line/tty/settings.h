// The settings of a port as the kernel keeps them: struct termios2, with the speed as a number
// beside its code in c_cflag. See termios(3) and ioctl_tty(2).
//
// The kernel's own header is used, not <termios.h> of the C library, whose structure is another
// one; a file cannot include both.
#pragma once

#include "simulator/line/uart/wire.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>

namespace simulator::line {

using tty_settings = ::termios2;

// What the serial driver gives a port that nobody has set up: 9600 bit/s, 8 data bits, cooked mode
// with echo (tty_std_termios in the kernel, measured on the 8250 driver).
tty_settings initial_settings();

// Computes the two speeds from the codes in c_cflag. With BOTHER the numbers stay as they are. A
// code that means no speed leaves `before`.
void resolve_speeds(tty_settings &settings, const tty_settings &before);

// Speed 0: the port hangs up, which means that DTR and RTS are off.
inline bool hangs_up(const tty_settings &settings) {
    return settings.c_ospeed == 0;
}

// Speed and framing. The chip has one clock for both directions, which is the output's. A port that
// has hung up still runs, at 9600.
line_format format_of(const tty_settings &settings);

// Neither input nor output is processed in any way: what frames need.
bool is_raw(const tty_settings &settings);

} // namespace simulator::line
