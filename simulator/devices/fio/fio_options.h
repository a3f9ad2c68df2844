// The option of hk_board for field I/O modules on the synchronous port.
#pragma once

#include "simulator/devices/device_set.h"

namespace simulator {

constexpr number_range MODULE_BYTE = {1, 255}; // of addresses and types; never 0

bool plug_modules(device_set &devices, const char *text); // --fio

} // namespace simulator
