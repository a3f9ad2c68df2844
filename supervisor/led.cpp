#include "supervisor/led.h"

#include <fcntl.h>
#include <unistd.h>

uint8_t led_toggle() {
    static int32_t led_fd = 0; // below 1: not open yet
    if (led_fd < 1)
        led_fd = open("/dev/cpuactive", O_RDWR);
    uint8_t state = 0;
    (void)!read(led_fd, &state, 1);
    state = state == 0 ? 1 : 0;
    (void)!write(led_fd, &state, 1); // no seek: the driver takes a state at any offset
    return state;
}
