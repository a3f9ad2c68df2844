#pragma once

#include <cstdint>

// Inverts the heartbeat LED on "/dev/cpuactive" and returns its new state, 0 or 1. The first call
// opens the device and it stays open; if it does not exist, each call tries again. Failures are not
// reported: a board may have no LED.
uint8_t led_toggle();
