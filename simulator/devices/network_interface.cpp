#include "simulator/devices/network_interface.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <iterator>

namespace simulator {

namespace {

constexpr const char *INTERFACE = "eth0";
constexpr unsigned GROUP_ADDRESS = 1; // bit of the first byte: a multicast address

} // namespace

void network_interface::bring_up() {
    tunnel.reset(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    bring_up_loopback();
    add_interface(mac, tunnel.get());
}

bool network_interface::open_nodes() {
    wake(now_us());
    return true;
}

int64_t network_interface::wake_time_us() const {
    return absence.next_look_us();
}

void network_interface::wake(int64_t time_us) {
    if (!absence.has_changed(time_us))
        return;
    if (absence.is_present())
        remove_interface();
    else
        add_interface(mac, tunnel.get());
}

void network_interface::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "removable part")
        targets.insert(INTERFACE);
}

bool network_interface::take_fault(const fault &wanted) {
    return absence.take(wanted, fault_id::gone, INTERFACE);
}

void add_network_interface(device_set &devices) {
    devices.add<network_interface>();
}

bool set_hardware_address(device_set &devices, const char *text) {
    mac_address mac{};
    std::array<unsigned, std::tuple_size_v<mac_address>> bytes{};
    int length = 0;
    const int found = sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2],
                             &bytes[3], &bytes[4], &bytes[5], &length);
    const bool is_zero = std::ranges::count(bytes, 0U) == std::ssize(bytes);
    if (found != static_cast<int>(bytes.size()) || text[length] != '\0' || is_zero ||
        (bytes[0] & GROUP_ADDRESS) != 0)
        return complain("--mac %s: not a unicast hardware address, such as 02:00:00:00:12:34",
                        text);
    for (size_t i = 0; i < bytes.size(); i++)
        mac[i] = static_cast<uint8_t>(bytes[i]);
    devices.find<network_interface>()->mac = mac; // every board has one
    return true;
}

} // namespace simulator
