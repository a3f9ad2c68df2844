// The board's network: the loopback interface and one Ethernet interface, in a network namespace
// that is connected to nothing. Programs read the interface's hardware address.
#pragma once

#include <array>
#include <cstdint>

namespace simulator {

using mac_address = std::array<uint8_t, 6>;

void bring_up_loopback();

// Adds "eth0" with the given hardware address and brings it up. If the kernel offers no virtual
// interface, the board runs without one, after a message on standard error. `tunnel` is an open
// descriptor of the host's /dev/net/tun, or -1; the board's /dev does not have that node.
void add_interface(const mac_address &mac, int tunnel);

// Removes the interface and its addresses.
void remove_interface();

} // namespace simulator
