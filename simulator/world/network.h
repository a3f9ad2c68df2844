// The board's network: the loopback interface and one Ethernet interface, in a network namespace
// of its own that leads nowhere. The interface is there for its hardware address.
#pragma once

#include <array>
#include <cstdint>

namespace simulator {

using mac_address = std::array<uint8_t, 6>;

void bring_up_loopback();

// Adds "eth0" with the given hardware address and brings it up. Where the kernel offers no kind of
// virtual interface the board does without, after a message on standard error. `tunnel` is an open
// descriptor of the host's /dev/net/tun, or -1: the board itself does not show that node.
void add_interface(const mac_address &mac, int tunnel);

// Takes it away, with its addresses.
void remove_interface();

} // namespace simulator
