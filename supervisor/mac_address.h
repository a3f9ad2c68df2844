#pragma once

#include <cstdint>
#include <span>

#include "runtime/settings.h"

// Copies the hardware address of the first network interface that is not a loopback interface, see
// netdevice(7). Returns 0, or -1 if there is none, and then does not change `address`.
int get_mac_address(std::span<uint8_t, MAC_BYTES> address);

// Fills `mac_hex`, with twelve zeros on a board without a network interface.
void name_board();
