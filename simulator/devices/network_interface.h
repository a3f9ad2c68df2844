// The board's Ethernet interface, "eth0". Programs read its hardware address; it is connected to
// nothing.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device_set.h"
#include "simulator/devices/presence_faults.h"
#include "simulator/world/network.h"

namespace simulator {

struct network_interface final : device {
    mac_address mac = {0x02, 0x00, 0x00, 0x00, 0x12, 0x34};

    // Call it while the host's /dev is still visible.
    void bring_up();

    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

private:
    unique_fd tunnel; // the host's /dev/net/tun, to make the interface again
    presence_faults absence;
};

void add_network_interface(device_set &devices);
bool set_hardware_address(device_set &devices, const char *text); // --mac

} // namespace simulator
