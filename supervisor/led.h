#pragma once

#include <cstdint>

// Inverts the heartbeat LED on "/dev/cpuactive" and returns its new state, 0 or 1. The first call
// opens the device, which is never closed; on a board without one each call tries again. Failures
// are not reported: such a board has no heartbeat.
uint8_t led_toggle();
