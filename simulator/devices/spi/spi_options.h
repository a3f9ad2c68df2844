// The options of hk_board for SPI devices.
#pragma once

#include "simulator/devices/device_set.h"

namespace simulator {

// Each carries out one option for its argument. False after a message that says what is valid.
bool add_spi_device(device_set &devices, const char *text); // --spi
bool add_datakey(device_set &devices, const char *text);    // --datakey
bool add_eeprom(device_set &devices, const char *text);     // --eeprom

} // namespace simulator
