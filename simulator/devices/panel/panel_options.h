// The options of hk_board for the front panel.
#pragma once

#include "simulator/devices/device_set.h"

namespace simulator {

// Each carries out one option for its argument. False after a message that says what is valid.
bool plug_terminal(device_set &devices, const char *);  // --panel
bool press_keys(device_set &devices, const char *text); // --keys

} // namespace simulator
