// The board's network: the loopback interface and one Ethernet interface, in a network namespace
// of its own that leads nowhere. The interface is there for its hardware address.
#pragma once

#include <array>
#include <cstdint>

namespace simulator {

using mac_address = std::array<uint8_t, 6>;

// Brings up "lo" and "eth0" with the given hardware address. Where the kernel offers no kind of
// virtual interface the board does without, after a message on standard error. To be called while
// the host's /dev is still visible.
void bring_up_network(const mac_address &mac);

} // namespace simulator
