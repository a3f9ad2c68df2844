// A separate file, since the kernel's termios structure and the C library's have the same name.

#include "serial/custom_speed.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

int set_custom_speed(int fd, uint32_t bps) {
#if defined(BOTHER) && defined(TCSETS2)
    struct termios2 settings = {};
    if (ioctl(fd, TCGETS2, &settings) != 0)
        return -1;
    // With these bits clear the input has the output's speed.
    settings.c_cflag &= ~static_cast<tcflag_t>(CBAUD | CBAUD << IBSHIFT);
    settings.c_cflag |= BOTHER;
    settings.c_ispeed = bps;
    settings.c_ospeed = bps;
    return ioctl(fd, TCSETS2, &settings);
#else
    (void)fd;
    (void)bps;
    return -1;
#endif
}
