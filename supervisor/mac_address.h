#pragma once

#include <cstdint>
#include <span>

constexpr int MAC_BYTES = 6;

// The board's MAC address as twelve lower-case hexadecimal digits; empty before name_board.
extern char mac_hex[2 * MAC_BYTES + 1];

// Copies the hardware address of the first network interface that is not a loopback interface, see
// netdevice(7). Returns 0, or -1 when there is none, which leaves `address` as it was.
int get_mac_address(std::span<uint8_t, MAC_BYTES> address);

// Fills `mac_hex`; twelve zeros on a board without a network interface.
void name_board();
